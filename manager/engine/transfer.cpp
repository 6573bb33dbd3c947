#include "manager/engine/transfer.h"

#include "manager/base/failure.h"
#include "manager/base/kill_point.h"
#include "manager/base/names.h"

#include <optional>
#include <utility>

namespace bxm {

namespace {

constexpr std::uint64_t kMostInUnit = 1000, kMostBytesInUnit = 16 << 20;

/// Takes messages one after the other from the head of a queue; those without the text are passed
/// over, and not looked at again.
class Taking : private Receiver {
public:
  Taking(StoreQueue& queue, const std::string& text) : m_queue(queue), m_text(text) {}

  bool next() {
    if (m_text.empty()) return m_queue.take(*this, true) == Found::kDelivered;
    while (isThere())
      if (m_queue.takeAt(*m_at, *this, true) == Found::kDelivered) return true;
    return false;
  }
  /// Whether there is one at all.
  bool isAnyLeft() {
    m_at.reset();
    return isThere();
  }
  int priority() const { return m_at->priority; }
  const std::string& stored() const { return m_stored; }

private:
  bool isThere() {
    m_looks = true;
    const bool found = m_queue.browse(m_at, *this) == Found::kDelivered;
    m_looks = false;
    return found;
  }
  Verdict judge(const StoredMessage& message) override {
    const bool fits = messageData(message.stored).find(m_text) != std::string_view::npos;
    return fits ? Verdict::kAccept : Verdict::kSkip;
  }
  void deliver(const StoredMessage& message) override {
    m_at = message.position;
    if (!m_looks) m_stored.assign(message.stored);
  }

  StoreQueue& m_queue;
  const std::string m_text;
  std::optional<Position> m_at;
  std::string m_stored;
  bool m_looks = false;
};

[[noreturn]] void failCommit(Committed committed, BXLONG reason, const std::string& queue) {
  switch (committed) {
  case Committed::kQueueGone:
    throw Failure(BXRC_Q_DELETED, "queue " + queue + " was deleted meanwhile");
  case Committed::kUnknown:
    throw Failure(BXRC_OUTCOME_UNKNOWN,
                  "the connection was lost in a commit: look at the queues before doing it again");
  default:
    throw Failure(reason, "the commit failed with reason " + std::to_string(reason) +
                              " and was backed out");
  }
}

void expectFits(StoreQueue& queue, std::string_view stored) {
  const auto most = static_cast<std::size_t>(queue.definition().maxMessageLength);
  if (const std::size_t size = messageData(stored).size(); size > most)
    throw Failure(BXRC_MESSAGE_TOO_BIG_FOR_Q,
                  "queue " + queue.definition().name + " takes messages of up to " +
                      std::to_string(most) + " bytes; the next one has " + std::to_string(size));
}

void expectOpen(StoreQueue& queue, bool putting) {
  const QueueDefinition& definition = queue.definition();
  if (putting && definition.putInhibited)
    throw Failure(BXRC_PUT_INHIBITED, "puts to queue " + definition.name + " are inhibited");
  if (!putting && definition.getInhibited)
    throw Failure(BXRC_GET_INHIBITED, "gets from queue " + definition.name + " are inhibited");
}

void reserve(StoreQueue& queue) {
  if (!queue.reserve(true))
    throw Failure(BXRC_Q_FULL, "queue " + queue.definition().name +
                                   " is full: its maximum depth is " +
                                   std::to_string(queue.definition().maxDepth));
}

/// Messages on their way, a unit of work at a time.
class Transfer {
public:
  Transfer(StoreSession& session, const std::string& from, const Told& told)
      : m_session(session), m_from(session.open(queueNamed(session, from))), m_told(told),
        m_puts(session.scratchFolder()) {
    expectOpen(*m_from, false);
  }
  ~Transfer() { m_session.backout(m_puts); }
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  void to(const std::string& name) {
    m_to = m_session.open(queueNamed(m_session, name));
    expectOpen(*m_to, true);
  }

  /// What was moved before one that cannot be counts.
  void run(const Selection& selection) {
    Taking taking(*m_from, selection.text);
    try {
      while (m_done + m_inUnit < selection.count && step(taking))
        if (m_inUnit == kMostInUnit || m_bytes >= kMostBytesInUnit) commit();
    } catch (const Failure& failure) {
      if (failure.reason() == BXRC_MESSAGE_TOO_BIG_FOR_Q) {
        const std::uint64_t before = m_done + m_inUnit - 1; // all but the one that was taken last
        m_to->unreserve();
        m_session.backout(m_puts);
        m_inUnit = m_bytes = 0;
        run({before, selection.text});
        throw;
      }
      if (failure.reason() != BXRC_Q_FULL) throw;
      commit();
      if (taking.isAnyLeft()) throw;
    }
    commit();
  }

private:
  bool step(Taking& taking) {
    if (m_to) reserve(*m_to);
    if (!taking.next()) {
      if (m_to) m_to->unreserve();
      return false;
    }
    ++m_inUnit;
    m_bytes += taking.stored().size();
    if (!m_to) return true;
    expectFits(*m_to, taking.stored());
    m_puts.append(m_to->definition().id, taking.priority(), taking.stored(), {},
                  messageExpiry(taking.stored()) != 0);
    BXM_KILL_POINT("move-put");
    return true;
  }

  void commit() {
    if (m_inUnit == 0) return;
    BXLONG reason = BXRC_NONE;
    const Committed committed = m_session.commit(m_puts, reason);
    if (committed != Committed::kDone)
      failCommit(committed, reason, (m_to ? m_to : m_from)->definition().name);
    BXM_KILL_POINT("move-committed");
    m_done += std::exchange(m_inUnit, 0);
    m_bytes = 0;
    m_told(m_done);
  }

  StoreSession& m_session;
  const std::shared_ptr<StoreQueue> m_from;
  std::shared_ptr<StoreQueue> m_to; ///< null: nowhere
  const Told m_told;
  PutBatch m_puts;
  std::uint64_t m_done = 0, m_inUnit = 0, m_bytes = 0;
};

} // namespace

QueueDefinition queueNamed(StoreSession& session, const std::string& name) {
  const auto queue = isName(name) ? session.findQueue(name) : std::nullopt;
  if (!queue) throw Failure(BXRC_UNKNOWN_OBJECT, "there is no queue " + name);
  return *queue;
}

void moveMessages(StoreSession& session, const std::string& from, const std::string& to,
                  const Selection& selection, const Told& told) {
  if (from == to) throw Failure(BXRC_OPTIONS_ERROR, "a queue cannot be moved to itself");
  Transfer transfer(session, from, told);
  transfer.to(to);
  transfer.run(selection);
}

void purgeMessages(StoreSession& session, const std::string& queue, const Told& told) {
  Transfer(session, queue, told).run({});
}

// ---- Import -------------------------------------------------------------------------------------

Import::Import(StoreSession& session, const std::string& queue)
    : m_session(session), m_queue(session.open(queueNamed(session, queue))),
      m_puts(session.scratchFolder()) {
  expectOpen(*m_queue, true);
}

Import::~Import() { m_session.backout(m_puts); }

void Import::put(int priority, std::string_view stored) {
  expectFits(*m_queue, stored);
  reserve(*m_queue);
  m_puts.append(m_queue->definition().id, priority, stored, {}, messageExpiry(stored) != 0);
}

void Import::commit() {
  BXLONG reason = BXRC_NONE;
  const Committed committed = m_session.commit(m_puts, reason);
  if (committed != Committed::kDone) failCommit(committed, reason, m_queue->definition().name);
}

} // namespace bxm
