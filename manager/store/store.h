#pragma once

#include "manager/store/message.h"
#include "manager/store/put_batch.h"
#include "manager/store/queue_definition.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What a queue manager needs of the place where its messages are kept. There is one
/// implementation for each binding; the engine knows no other.
///
/// Expected outcomes are results. Everything else is a Failure with its reason code: 2009 the store
/// went away, 2056 no space, 2101 damaged, 2102 no resources, 2124 only the store knows, 2195
/// unexpected.
namespace bxm {

/// A place in a queue: behind everything of a higher priority and of a lower sequence.
struct Position {
  int priority = 0;
  std::uint64_t sequence = 0;
};

/// A message as the store holds it. Valid during the call that it is passed to.
struct StoredMessage {
  Position position;
  std::string_view stored; ///< see message.h
  std::int64_t now = 0;    ///< the store's clock, ms since 1970; 0: this machine's
};

/// Chooses and receives a message. judge may be called for several messages, and for one that
/// another connection then takes first; deliver once, for the message that is taken or browsed.
class Receiver {
public:
  enum class Verdict { kSkip, kAccept, kRefuse };
  virtual ~Receiver() = default;
  /// kSkip: not this one, go on. kRefuse: stop here and leave the message where it is.
  virtual Verdict judge(const StoredMessage& message) = 0;
  virtual void deliver(const StoredMessage& message) = 0;
  /// When judge accepts whatever message has up to so many bytes of data: that number.
  virtual std::optional<std::size_t> room() const { return std::nullopt; }
};

enum class Found { kDelivered, kRefused, kNothing };

/// How a commit ended. kUnknown: the connection to the store was lost in its middle, and only the
/// store knows; kQueueGone: a queue that was put to has been deleted. With kFailed and kQueueGone
/// the unit of work is backed out.
enum class Committed { kDone, kFailed, kQueueGone, kUnknown };

/// What can be set about a manager.
struct ManagerSettings {
  bool syncFull = false; ///< commits of gets wait for the disk
};

/// What is going on with a queue, for who looks after it.
struct QueueFigures {
  /// That count, since the manager counts (see StoreSession::countsSince); gets with what expired.
  /// They only grow.
  std::uint64_t puts = 0, gets = 0;
  std::uint64_t uncommitted = 0;           ///< puts
  std::uint64_t readers = 0, writers = 0;  ///< connections that have it open and got, or put
};

/// One queue as one session uses it. Must not outlive the session.
class StoreQueue {
public:
  virtual ~StoreQueue() = default;

  /// As it was when something was last asked of the store, and as it is now. Who refuses something
  /// because of the first asks the second.
  virtual const QueueDefinition& definition() = 0;
  virtual const QueueDefinition& latestDefinition() { return definition(); }
  /// False once the queue has been deleted; every other call then finds nothing.
  virtual bool exists() = 0;

  /// Committed messages that are not got for good, plus uncommitted puts of all sessions.
  virtual std::uint64_t depth() = 0;
  virtual QueueFigures figures() = 0;
  /// The session gets from it, or puts to it: others are told in the figures.
  virtual void noteUse(bool reads, bool writes) = 0;
  /// Counts one uncommitted put; false, and nothing counted, when the queue would then hold more
  /// than its maximum depth. Counted until the commit or backout that ends it, or unreserve; a put
  /// outside of units of work follows at once.
  virtual bool reserve(bool syncpoint) = 0;
  virtual void unreserve() = 0;

  /// Takes the first message that is committed, not expired, not taken, and that the receiver
  /// accepts. Under syncpoint it is the session's until commit or backout, else it is gone.
  virtual Found take(Receiver& receiver, bool syncpoint) = 0;
  /// The same for the one message at a position.
  virtual Found takeAt(const Position& position, Receiver& receiver, bool syncpoint) = 0;
  /// Delivers the first message behind a position (nullopt: the first of all) without taking it.
  virtual Found browse(const std::optional<Position>& after, Receiver& receiver) = 0;

  /// A number that changes whenever a message may have become available.
  virtual std::uint32_t arrivals() = 0;
  /// Sleeps until arrivals() is no longer seen, a while has passed in which something may have
  /// happened that nobody announced (a process died), or until.
  virtual void waitForArrival(std::uint32_t seen, std::chrono::steady_clock::time_point until) = 0;
};

/// What one connection does with a store. One thread at a time. The destructor backs out, and makes
/// what was committed as durable as it will ever be.
class StoreSession {
public:
  virtual ~StoreSession() = default;

  virtual std::string managerName() const = 0;
  /// Where the session's batch may spill to.
  virtual std::string scratchFolder() const = 0;
  /// The clock by which messages expire, ms since 1970.
  virtual std::int64_t now() = 0;

  virtual std::optional<QueueDefinition> findQueue(std::string_view name) = 0;
  virtual std::vector<QueueDefinition> listQueues() = 0;
  /// Assigns id and slot. False when the name exists.
  virtual bool createQueue(QueueDefinition& definition) = 0;
  /// Stores limits and attributes of the queue that the definition's id tells, and sets when it was
  /// altered. False when it has been deleted.
  virtual bool alterQueue(QueueDefinition& definition) = 0;
  enum class Deleted { kDone, kUnknownQueue, kNotEmpty };
  virtual Deleted deleteQueue(std::string_view name, bool purge) = 0;

  virtual ManagerSettings settings() = 0;
  /// ms since 1970; nullopt where the store does not know.
  virtual std::optional<std::int64_t> countsSince() = 0;
  virtual bool commandServerRuns() = 0;
  virtual void setCommandServer(bool runs) = 0;

  /// The same object for the same queue as long as somebody holds it or the unit of work needs it.
  virtual std::shared_ptr<StoreQueue> open(const QueueDefinition& definition) = 0;

  /// Makes the puts and everything taken under syncpoint count, in one step, and empties the batch
  /// whatever the result. reason receives the reason code of a failure.
  virtual Committed commit(PutBatch& puts, BXLONG& reason) = 0;
  /// Gives back what was taken under syncpoint, uncounts the batch's puts and empties it.
  virtual void backout(PutBatch& puts) = 0;
  /// Stores puts that belong to no unit of work; what is taken stays taken.
  virtual Committed put(PutBatch& puts, BXLONG& reason) = 0;
};

} // namespace bxm
