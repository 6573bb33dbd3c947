#pragma once

#include "manager/store/store.h"

#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <string_view>

/// What the operator's programs do with messages. Nothing about a message changes on its way: its
/// identifier, its times and its priority stay. Everything throws a Failure.
namespace bxm {

/// Throws Failure 2085 when there is no such queue.
QueueDefinition queueNamed(StoreSession& session, const std::string& name);

struct Selection {
  std::uint64_t count = std::numeric_limits<std::uint64_t>::max(); ///< so many at the most
  std::string text; ///< only those whose data contains this; empty: all
};

/// Called after each commit, with how many messages count by now.
using Told = std::function<void(std::uint64_t count)>;

/// Moves the first messages of a queue to the end of another one of the same manager: each is on
/// one of the two at any time, whatever happens. What others have taken, or not committed yet,
/// stays. A target that is full (2053) or takes no message so long (2030) ends it; told says how
/// many were moved.
void moveMessages(StoreSession& session, const std::string& from, const std::string& to,
                  const Selection& selection, const Told& told);

/// Deletes what is on a queue and neither taken nor uncommitted.
void purgeMessages(StoreSession& session, const std::string& queue, const Told& told);

/// Puts messages in the stored form onto a queue, all in one unit of work.
class Import {
public:
  Import(StoreSession& session, const std::string& queue);
  ~Import(); ///< backs out what was not committed
  Import(const Import&) = delete;
  Import& operator=(const Import&) = delete;

  void put(int priority, std::string_view stored);
  void commit();

private:
  StoreSession& m_session;
  const std::shared_ptr<StoreQueue> m_queue;
  PutBatch m_puts;
};

} // namespace bxm
