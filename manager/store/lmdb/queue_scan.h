#pragma once

#include "manager/store/lmdb/lmdb_store.h"
#include "manager/store/store.h"

#include <optional>

namespace bxm {

/// Walks the messages of a queue in order, over what the floors rule out, and raises the floors
/// over what it finds to be unavailable.
class QueueScan {
public:
  QueueScan(const QueueShare& share, Reader::Snapshot& snapshot,
            const std::optional<Position>& after);
  ~QueueScan();
  QueueScan(const QueueScan&) = delete;
  QueueScan& operator=(const QueueScan&) = delete;

  /// Moves to the next message; false at the end of the queue.
  bool next();
  StoredMessage& message() { return m_message; }

  /// The current message is nobody's to take (it is taken, consumed, expired).
  void markUnavailable() {
    if (m_solid) m_end = m_message.position.sequence + 1;
  }
  /// Somebody could still take the current message.
  void markAvailable() { m_solid = false; }
  /// The snapshot has moved on and the cursor has lost its place.
  void reseek() { m_reseek = true; }

private:
  bool enterPriority(MDB_val& key, MDB_val& value);
  bool step(MDB_val& key, MDB_val& value);
  bool seek(std::uint64_t sequence, MDB_val& key, MDB_val& value);
  bool belongs(const MDB_val& key) const;
  void raise();

  std::size_t m_passed = 0; ///< bytes
  const QueueShare& m_share;
  Reader::Snapshot& m_snapshot;
  std::optional<Position> m_after;
  StoredMessage m_message;
  int m_priority = BXPRI_MAXIMUM;
  bool m_entered = false;
  bool m_reseek = false;
  bool m_solid = false;      ///< everything from the floor on was unavailable
  std::uint64_t m_floor = 0; ///< the word as it was when the priority was entered
  std::uint64_t m_end = 0;   ///< behind the last message that was unavailable; 0 none
};

} // namespace bxm
