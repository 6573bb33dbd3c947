#include "manager/engine/copying.h"

#include "manager/base/failure.h"
#include "manager/base/kill_point.h"
#include "manager/engine/copy_record.h"
#include "manager/engine/queue_walk.h"
#include "manager/store/catalog.h"

#include <algorithm>

namespace bxm {

namespace {

/// Of one unit of work. One message more may come on top of the bytes.
constexpr std::uint64_t kMostMessages = 4000, kMostBytes = 4 << 20;

std::string wordsFor(BXLONG reason) {
  switch (reason) {
  case BXRC_STORAGE_FULL: return "no space is left";
  case BXRC_NOT_AUTHORIZED: return "not authorized";
  case BXRC_CONNECTION_BROKEN: return "the connection to it was lost";
  case BXRC_OUTCOME_UNKNOWN: return "whether the last messages were stored it did not say";
  default: return "reason " + std::to_string(reason);
  }
}

class Copy {
public:
  Copy(const std::string& from, const std::string& to);
  void checkTarget();
  void copyQueues();
  void verify(const std::function<void(const CopiedQueue&)>& told);
  void finish() { m_record->remove(); }

private:
  std::string onBoth(const std::string& queue) const;
  void checkRoom(const QueueDefinition& source, const QueueDefinition& target);
  void checkMessages(const QueueDefinition& source, const QueueDefinition& target);
  QueueDefinition targetOf(const QueueDefinition& source);
  void copyQueue(const QueueDefinition& source);
  void copyUnit(QueueWalk& from, StoreQueue& to);
  void put(const QueueWalk& message, StoreQueue& to);
  std::uint64_t verifyQueue(const QueueDefinition& source);

  const std::unique_ptr<StoreSession> m_from, m_to;
  PutBatch m_puts;
  std::vector<QueueDefinition> m_queues; ///< of the source, in name order
  std::unique_ptr<CopyRecord> m_record;
};

Copy::Copy(const std::string& from, const std::string& to)
    : m_from(catalog().connect(from)), m_to(catalog().connect(to)), m_puts(m_to->scratchFolder()),
      m_queues(m_from->listQueues()) {
  if (m_from->managerName() == m_to->managerName())
    throw Failure(BXRC_OPTIONS_ERROR, "a queue manager is not copied to itself");
  if (m_from->findQueue(CopyRecord::kQueue))
    throw Failure(BXRC_OBJECT_IN_USE, "a copy into " + m_from->managerName() +
                                          " is not finished: its queue " + CopyRecord::kQueue +
                                          " is there");
  std::sort(m_queues.begin(), m_queues.end(),
            [](const auto& one, const auto& other) { return one.name < other.name; });
  m_record = std::make_unique<CopyRecord>(*m_to, m_from->managerName());
}

std::string Copy::onBoth(const std::string& queue) const {
  return "queue " + queue + " of " + m_from->managerName() + " and of " + m_to->managerName();
}

// ---- Before anything is written -----------------------------------------------------------------

void Copy::checkTarget() {
  for (const QueueDefinition& source : m_queues)
    if (const auto target = m_to->findQueue(source.name)) {
      checkRoom(source, *target);
      if (!m_record->hasBegun(source.name)) checkMessages(source, *target);
    }
}

void Copy::checkRoom(const QueueDefinition& source, const QueueDefinition& target) {
  const std::uint64_t depth = m_from->open(source)->depth();
  if (depth > static_cast<std::uint64_t>(target.maxDepth))
    throw Failure(BXRC_Q_FULL, "queue " + target.name + " of " + m_to->managerName() + " holds " +
                                   std::to_string(target.maxDepth) + " messages at most, and " +
                                   std::to_string(depth) + " are to be copied");
}

/// What a copy that was finished has left may stay.
void Copy::checkMessages(const QueueDefinition& source, const QueueDefinition& target) {
  if (m_to->open(target)->depth() == 0) return;
  QueueWalk from(*m_from, source), to(*m_to, target);
  passCommon(from, to);
  if (!from.atEnd() || !to.atEnd())
    throw Failure(BXRC_Q_NOT_EMPTY, "queue " + target.name + " of " + m_to->managerName() +
                                        " has messages already that are not of this copy");
}

// ---- Copying ------------------------------------------------------------------------------------

void Copy::copyQueues() {
  m_record->open();
  BXM_KILL_POINT("copy-opened");
  for (const QueueDefinition& source : m_queues) copyQueue(source);
}

QueueDefinition Copy::targetOf(const QueueDefinition& source) {
  if (const auto known = m_to->findQueue(source.name)) return *known;
  QueueDefinition made = source;
  m_to->createQueue(made);
  return m_to->findQueue(source.name).value_or(made);
}

/// What is there already of an earlier run is the beginning of the source, or it is not that run's.
void Copy::copyQueue(const QueueDefinition& source) {
  const QueueDefinition target = targetOf(source);
  BXM_KILL_POINT("copy-made");
  QueueWalk from(*m_from, source), to(*m_to, target);
  passCommon(from, to);
  if (!to.atEnd())
    throw Failure(BXRC_BACKED_OUT,
                  onBoth(source.name) + " differ behind " + std::to_string(to.passed()) +
                      " messages: stop what uses either, delete the latter and copy again");
  const auto queue = m_to->open(target);
  while (!from.atEnd()) copyUnit(from, *queue);
}

void Copy::copyUnit(QueueWalk& from, StoreQueue& to) {
  m_record->take();
  for (std::uint64_t left = kMostMessages; left > 0 && m_puts.bytes() < kMostBytes && !from.atEnd();
       --left, from.next())
    put(from, to);
  m_record->put(m_puts, to.definition().name, from.passed());
  BXLONG reason = BXRC_NONE;
  if (m_to->commit(m_puts, reason) != Committed::kDone)
    throw Failure(reason, "queue manager " + m_to->managerName() +
                              " did not take the messages: " + wordsFor(reason));
  m_record->committed();
  BXM_KILL_POINT("copy-unit");
}

void Copy::put(const QueueWalk& message, StoreQueue& to) {
  const QueueDefinition& target = to.definition();
  const auto where = [&] { return "queue " + target.name + " of " + m_to->managerName(); };
  if (messageData(message.stored()).size() > static_cast<std::size_t>(target.maxMessageLength))
    throw Failure(BXRC_MESSAGE_TOO_BIG_FOR_Q, where() + " takes messages of up to " +
                                                  std::to_string(target.maxMessageLength) +
                                                  " bytes, and there is a larger one");
  if (!to.reserve(true))
    throw Failure(BXRC_Q_FULL,
                  where() + " is full: its maximum depth is " + std::to_string(target.maxDepth));
  m_puts.append(target.id, message.priority(), message.stored(), {},
                messageExpiry(message.stored()) != 0);
  BXM_KILL_POINT("copy-put");
}

// ---- Verifying ----------------------------------------------------------------------------------

void Copy::verify(const std::function<void(const CopiedQueue&)>& told) {
  for (const QueueDefinition& source : m_queues) {
    const std::uint64_t messages = verifyQueue(source);
    BXM_KILL_POINT("copy-verified");
    told({source.name, messages});
  }
}

std::uint64_t Copy::verifyQueue(const QueueDefinition& source) {
  QueueWalk from(*m_from, source), to(*m_to, targetOf(source));
  passCommon(from, to);
  while (!from.atEnd() && from.mayHaveExpired(to)) from.next();
  while (!to.atEnd() && to.mayHaveExpired(from)) to.next();
  if (!from.atEnd() || !to.atEnd())
    throw Failure(BXRC_BACKED_OUT,
                  onBoth(source.name) + " differ behind " +
                      std::to_string(std::min(from.passed(), to.passed())) +
                      " messages, since something put or got meanwhile: stop what uses either, "
                      "delete the latter and copy again");
  if (from.missedSome() || to.missedSome())
    throw Failure(
        BXRC_OBJECT_IN_USE,
        onBoth(source.name) +
            " are in use: somebody has taken or put messages there without a commit; stop "
            "what uses either and copy again (if nothing does, messages are damaged: repair)");
  return to.passed();
}

} // namespace

void copyManager(const std::string& from, const std::string& to,
                 const std::function<void(const CopiedQueue&)>& told) {
  Copy copy(from, to);
  copy.checkTarget();
  copy.copyQueues();
  copy.verify(told);
  copy.finish();
}

} // namespace bxm
