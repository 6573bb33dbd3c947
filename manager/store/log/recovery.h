#pragma once

#include "manager/store/log/log_store.h"
#include "manager/store/log/log_writer.h"

namespace bxm {

/// Finishes what processes that died had decided, undoes the rest, and gives their files and slots
/// back; writer logs what they had got and not logged. Whoever dies over it leaves the rest to the
/// next, and what fails waits for him, too. True when there was any.
bool recoverDead(LogStore& store, LogWriter& writer);

/// The pieces of the unit of work whose last one stands at a place, in their order; empty unless
/// all of them are whole.
std::vector<Place> piecesOf(LogFiles& files, Place last, std::uint64_t number);
/// Calls visit(record) with a piece.
void visitPiece(LogFiles& files, Place place, const std::function<void(const RecordView&)>& visit);

} // namespace bxm
