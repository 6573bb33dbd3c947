#pragma once

#include "manager/store/store.h"

#include <cstdint>
#include <memory>
#include <string>

namespace bxm {

/// How far a copy into a manager has come: one message on a queue of its own there. Each unit of
/// work of the copy takes the message and puts the next, so that it says what is committed, and of
/// two copies at once one finds that it is not its own any more.
///
///   FROM QUEUE COUNT      the last queue that was begun ("-": none), and what was put there
class CopyRecord {
public:
  static constexpr const char* kQueue = "BXM.COPY";

  /// Reads what an earlier run has left, and waits until nobody works on it: a database may still
  /// be ending what a process had begun that was killed. Throws Failure when somebody goes on
  /// working, or when it is another manager's copy that is there.
  CopyRecord(StoreSession& to, std::string from);

  /// An earlier run may have put something onto this queue. Queues are copied in name order.
  bool hasBegun(const std::string& queue) const { return m_last != kNone && queue <= m_last; }
  /// Makes the queue and the first message where they are missing.
  void open();
  /// Takes the message, in the unit of work. Throws Failure when it is not the one that this copy
  /// knows.
  void take();
  /// Puts the next one. It counts with committed.
  void put(PutBatch& puts, const std::string& queue, std::uint64_t count);
  void committed() { m_stored = m_next; }
  void remove();

private:
  static constexpr const char* kNone = "-"; ///< sorts before no name, and is none

  void read();
  void makeQueue();
  [[noreturn]] void failAsOther() const;
  std::string encode(const std::string& text);

  StoreSession& m_to;
  const std::string m_from;
  std::shared_ptr<StoreQueue> m_queue; ///< null where there is none
  std::string m_stored;                ///< the message; empty where there is none
  std::string m_next;
  std::string m_last = kNone;
  MadeId m_id;
};

} // namespace bxm
