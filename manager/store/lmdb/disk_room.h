#pragma once

#include "manager/store/lmdb/durable.h"

#include <cstdint>

namespace bxm {

/// True when the store's file can hardly grow any more.
bool isDiskFull(const Durable& durable);

/// The library tells of a write that was cut short as an input/output error. This is what it was: a
/// full disk, the limit that the process has for the size of files, or that error indeed.
int causeOfShortWrite(const Durable& durable);

/// Puts leave the last of a full disk to deletions, which copy pages before they free any. Throws
/// Failure 2056 when about so many bytes would take it. To be asked within a write transaction.
void keepRoomToDelete(const Durable& durable, std::uint64_t bytes);

} // namespace bxm
