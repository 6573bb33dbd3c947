#include "manager/engine/copy_record.h"

#include "manager/base/failure.h"
#include "manager/base/random_number.h"
#include "manager/engine/queue_walk.h"

#include <chrono>
#include <cstring>
#include <sstream>
#include <thread>

namespace bxm {

namespace {

using Clock = std::chrono::steady_clock;

/// A server notices within this that a client is gone, and ends what it had begun.
constexpr std::chrono::seconds kMostEnding{30};
/// Whoever makes the queue puts its message at once.
constexpr std::chrono::seconds kMostBeginning{5};
constexpr std::chrono::milliseconds kBetweenLooks{100};

/// Takes whatever comes first.
class TakeFirst : public Receiver {
public:
  Verdict judge(const StoredMessage& /*message*/) override { return Verdict::kAccept; }
  void deliver(const StoredMessage& message) override { stored = message.stored; }
  std::optional<std::size_t> room() const override { return std::size_t{kMessageLengthLimit}; }

  std::string stored;
};

} // namespace

CopyRecord::CopyRecord(StoreSession& to, std::string from)
    : m_to(to), m_from(std::move(from)), m_id{randomNumber(), 0} {
  if (const auto there = m_to.findQueue(kQueue)) {
    m_queue = m_to.open(*there);
    read();
  }
}

/// A queue without a message is left by who died right after it was made; or its message is about
/// to come.
void CopyRecord::read() {
  const auto begin = Clock::now();
  for (;; std::this_thread::sleep_for(kBetweenLooks)) {
    QueueWalk walk(m_to, m_queue->definition());
    m_stored = walk.next() ? walk.stored() : "";
    const bool isAlone = (walk.atEnd() || !walk.next()) && !walk.missedSome();
    if (isAlone && !m_stored.empty()) break;
    if (isAlone && Clock::now() >= begin + kMostBeginning) return;
    if (Clock::now() >= begin + kMostEnding) failAsOther();
  }
  std::istringstream words{std::string(messageData(m_stored))};
  std::string from;
  words >> from >> m_last;
  if (from != m_from)
    throw Failure(BXRC_OBJECT_IN_USE,
                  "a copy of " + from + " into " + m_to.managerName() +
                      " is not finished: finish it, or delete what it has copied and its queue " +
                      kQueue);
}

void CopyRecord::failAsOther() const {
  throw Failure(BXRC_OBJECT_IN_USE, "another copy into " + m_to.managerName() + " is at work");
}

void CopyRecord::makeQueue() {
  QueueDefinition definition;
  definition.name = kQueue;
  definition.maxDepth = 2;
  bool made = false;
  try {
    made = m_to.createQueue(definition);
  } catch (const Failure& failure) {
    throw Failure(failure.reason(),
                  "no queue can be made in " + m_to.managerName() + ": " + failure.what());
  }
  if (!made) failAsOther();
  m_queue = m_to.open(definition);
}

void CopyRecord::open() {
  if (!m_queue) makeQueue();
  if (!m_stored.empty()) return;
  PutBatch puts(m_to.scratchFolder());
  put(puts, kNone, 0);
  BXLONG reason = BXRC_NONE;
  if (m_to.commit(puts, reason) != Committed::kDone)
    throw Failure(reason,
                  m_to.managerName() + " takes no message: reason " + std::to_string(reason));
  committed();
}

void CopyRecord::take() {
  TakeFirst first;
  if (m_queue->take(first, true) != Found::kDelivered || first.stored != m_stored) failAsOther();
}

std::string CopyRecord::encode(const std::string& text) {
  BXMD descriptor = BXMD_DEFAULT;
  std::memcpy(descriptor.format, BXFMT_STRING, BX_FORMAT_LENGTH);
  descriptor.persistence = BXPER_PERSISTENT;
  ++m_id.counter;
  std::string stored;
  encodeMessageHeader(descriptor, {m_to.now(), 0}, m_id, stored);
  return stored + text;
}

void CopyRecord::put(PutBatch& puts, const std::string& queue, std::uint64_t count) {
  m_last = hasBegun(queue) ? m_last : queue;
  m_next = encode(m_from + " " + m_last + " " + std::to_string(count));
  if (!m_queue->reserve(true)) failAsOther();
  puts.append(m_queue->definition().id, 0, m_next, {});
}

void CopyRecord::remove() {
  m_queue.reset();
  m_to.deleteQueue(kQueue, true);
}

} // namespace bxm
