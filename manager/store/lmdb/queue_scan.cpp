#include "manager/store/lmdb/queue_scan.h"

namespace bxm {

QueueScan::QueueScan(const QueueShare& share, Reader::Snapshot& snapshot,
                     const std::optional<Position>& after)
    : m_share(share), m_snapshot(snapshot), m_after(after) {
  if (after) m_priority = after->priority;
}

QueueScan::~QueueScan() {
  raise();
  m_snapshot.passedThrough(m_passed);
}

bool QueueScan::next() {
  MDB_val key{}, value{};
  for (; m_priority >= 0; --m_priority) {
    if (m_entered ? step(key, value) : enterPriority(key, value)) {
      m_message.position = MessageKey::positionOf(key);
      m_message.record = {static_cast<const char*>(value.mv_data), value.mv_size};
      m_passed += value.mv_size;
      return true;
    }
    raise();
    m_entered = m_reseek = false;
  }
  return false;
}

bool QueueScan::enterPriority(MDB_val& key, MDB_val& value) {
  if (!(m_share.slot.priorities.load() & (1U << m_priority))) return false;
  m_entered = true;
  m_floor = m_share.slot.floors[m_priority].load();
  std::uint64_t from = floorSequence(m_floor);
  m_solid = true;
  if (m_after && m_after->priority == m_priority && m_after->sequence >= from) {
    from = m_after->sequence + 1;
    m_solid = false;
  }
  return seek(from, key, value);
}

bool QueueScan::step(MDB_val& key, MDB_val& value) {
  if (m_reseek) {
    m_reseek = false;
    return seek(m_message.position.sequence + 1, key, value);
  }
  const int result = ::mdb_cursor_get(m_snapshot.messages(), &key, &value, MDB_NEXT);
  if (result == MDB_NOTFOUND) return false;
  if (result != MDB_SUCCESS) failWithLmdb(result, "reading messages");
  return belongs(key);
}

bool QueueScan::seek(std::uint64_t sequence, MDB_val& key, MDB_val& value) {
  MessageKey wanted(m_share.id, {m_priority, sequence});
  key = wanted.value();
  const int result = ::mdb_cursor_get(m_snapshot.messages(), &key, &value, MDB_SET_RANGE);
  if (result == MDB_NOTFOUND) return false;
  if (result != MDB_SUCCESS) failWithLmdb(result, "reading messages");
  return belongs(key);
}

bool QueueScan::belongs(const MDB_val& key) const {
  return MessageKey::queueOf(key) == m_share.id &&
         MessageKey::positionOf(key).priority == m_priority;
}

void QueueScan::raise() {
  if (m_entered && m_end > 0) raiseFloor(m_share.slot.floors[m_priority], m_floor, m_end);
  m_end = 0;
}

} // namespace bxm
