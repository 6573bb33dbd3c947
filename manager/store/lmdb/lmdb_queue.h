#pragma once

#include "manager/store/lmdb/lmdb_store.h"
#include "manager/store/lmdb/read_ahead.h"
#include "manager/store/store.h"

#include <memory>
#include <vector>

namespace bxm {

class LmdbSession;
class QueueScan;

/// One queue in one connection to an embedded manager: what it has taken, what it has consumed.
class LmdbQueue : public StoreQueue {
public:
  LmdbQueue(LmdbSession& session, const QueueDefinition& definition);
  ~LmdbQueue() override;

  const QueueDefinition& definition() const override { return m_definition; }
  bool exists() override { return m_share->exists(); }
  std::uint64_t depth() override;
  bool reserve() override;
  void unreserve() override { m_access.uncommitted.fetch_sub(1); }
  Found take(Receiver& receiver, bool syncpoint) override;
  Found takeAt(const Position& position, Receiver& receiver, bool syncpoint) override;
  Found browse(const std::optional<Position>& after, Receiver& receiver) override;
  std::uint32_t arrivals() override { return m_share->slot.arrivals.load(); }
  void waitForArrival(std::uint32_t seen, std::chrono::steady_clock::time_point until) override;

  /// The depth, where a write transaction is open: dead processes are not looked after.
  std::uint64_t depthWhileLocked();
  /// Nothing of the unit of work is in it, and nothing waits for its durable deletion.
  bool isQuiet() const {
    return !hasTaken() && m_consumption.size() == 0 && m_access.uncommitted.load() == 0;
  }

  /// The unit of work's part in this queue. Beyond kMostListed messages only the take map knows
  /// them, so that a unit of work can take any number in bounded memory.
  bool hasTaken() const { return m_takenCount > 0; }
  std::uint64_t takenCount() const { return m_takenCount; }
  template <typename Visit>
  void visitTaken(Visit visit) {
    TakeMap& takes = m_share->takes;
    if (m_taken.size() != m_takenCount) return visitTakenInMap(visit);
    for (const Position& position : m_taken) visit(position, takes.at(position.sequence));
  }
  void forgetTaken();

  /// Taken messages, not more than Settler::kMostUnsettled, are gone for good; their durable
  /// deletion follows. Cannot fail behind Settler::makeRoom.
  void consumeTaken();
  /// Taken messages are gone for good, and the durable store has deleted them already.
  void markTakenDeleted();
  /// Taken messages go back to their places.
  void releaseTaken();

  const std::shared_ptr<QueueShare>& share() const { return m_share; }
  AccessSlot& access() { return m_access; }
  std::uint32_t accessSlot() const { return m_accessSlot; }

  Consumption& consumption() { return m_consumption; }

private:
  enum class Claim { kMine, kLost, kGone };
  Claim claim(Reader::Snapshot& snapshot, StoredMessage& message, bool& moved);
  void accept(StoredMessage& message, Receiver& receiver, bool syncpoint);
  bool dropExpired(const Position& position);
  bool passOver(QueueScan& scan);
  void
  visitTakenInMap(const std::function<void(const Position&, std::atomic<std::uint32_t>&)>& visit);
  bool claimEntry(const Position& position);
  std::optional<Found> takeAhead(Receiver& receiver, bool syncpoint);
  std::optional<Found> browseAhead(const Position& after, Receiver& receiver);
  void fill(ReadAhead& ahead, std::size_t wanted, QueueScan& scan) noexcept;
  void noteTouched(std::uint64_t sequence);
  void lookAfterOthers();
  bool recoverOthers();
  void makeRoomForOne();
  Found scanAndTake(Receiver& receiver, bool syncpoint);
  /// The durable depth, and the transaction as of which it is.
  std::pair<std::uint64_t, std::uint64_t> durableDepth();
  bool isNewest(std::uint64_t transaction);

  LmdbSession& m_session;
  QueueDefinition m_definition;
  std::shared_ptr<QueueShare> m_share;
  std::uint32_t m_accessSlot;
  AccessSlot& m_access;
  Consumption m_consumption;
  ReadAhead m_takeAhead, m_browseAhead;
  std::vector<Position> m_taken;
  std::uint64_t m_takenCount = 0;
};

} // namespace bxm
