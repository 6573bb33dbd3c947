#include "manager/engine/connection.h"

#include "manager/base/names.h"
#include "manager/store/message.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <utility>

namespace bxm {

namespace {

using Clock = std::chrono::steady_clock;

/// Which identifiers a message must have to be chosen.
class Match {
public:
  Match(const BXMD& descriptor, BXLONG options) {
    if (options & BXMO_MATCH_MESSAGE_ID) take(descriptor.messageId, m_messageId, m_byMessageId);
    if (options & BXMO_MATCH_CORRELATION_ID)
      take(descriptor.correlationId, m_correlationId, m_byCorrelationId);
  }
  bool any() const { return !m_byMessageId && !m_byCorrelationId; }
  bool fits(const BXMD& descriptor) const {
    return (!m_byMessageId || same(descriptor.messageId, m_messageId)) &&
           (!m_byCorrelationId || same(descriptor.correlationId, m_correlationId));
  }

private:
  using Identifier = BXBYTE[BX_IDENTIFIER_LENGTH];
  static bool same(const Identifier& a, const Identifier& b) {
    return std::memcmp(a, b, sizeof a) == 0;
  }
  static void take(const Identifier& wanted, Identifier& kept, bool& used) {
    std::memcpy(kept, wanted, sizeof kept);
    used = !isZero(wanted);
  }

  Identifier m_messageId{}, m_correlationId{};
  bool m_byMessageId = false, m_byCorrelationId = false;
};

/// Puts a message into the caller's buffer and descriptor.
class IntoBuffer : public Receiver {
public:
  IntoBuffer(Connection::GetRequest& request, const Match& match)
      : m_request(request), m_match(match) {}

  Verdict judge(const StoredMessage& message) override {
    if (!m_match.any()) {
      BXMD descriptor{};
      decodeMessage(message.stored, message.now, descriptor);
      if (!m_match.fits(descriptor)) return Verdict::kSkip;
    }
    const bool fits = messageData(message.stored).size() <= m_request.bufferLength;
    if (fits || (m_request.options & BXGMO_ACCEPT_TRUNCATED_MESSAGE)) return Verdict::kAccept;
    deliver(message);
    return Verdict::kRefuse;
  }

  void deliver(const StoredMessage& message) override {
    const std::string_view data = decodeMessage(message.stored, message.now, m_request.descriptor);
    m_request.descriptor.priority = message.position.priority;
    const std::size_t copied = std::min(data.size(), m_request.bufferLength);
    if (copied > 0) std::memcpy(m_request.buffer, data.data(), copied);
    m_request.dataLength = static_cast<BXLONG>(data.size());
    m_request.returnedLength = static_cast<BXLONG>(copied);
    m_position = message.position;
  }

  std::optional<std::size_t> room() const override {
    if (!m_match.any()) return std::nullopt;
    const bool cuts = (m_request.options & BXGMO_ACCEPT_TRUNCATED_MESSAGE) != 0;
    return cuts ? std::size_t{kMessageLengthLimit} : m_request.bufferLength;
  }

  const Position& position() const { return m_position; }

private:
  Connection::GetRequest& m_request;
  const Match& m_match;
  Position m_position;
};

Found browse(OpenQueue& queue, BXLONG options, IntoBuffer& into) {
  if (options & BXGMO_BROWSE_FIRST) queue.cursor.reset();
  const Found found = queue.queue->browse(queue.cursor, into);
  if (found == Found::kDelivered) queue.cursor = into.position();
  return found;
}

Found getOnce(OpenQueue& queue, const Connection::GetRequest& request, IntoBuffer& into) {
  if (request.options & (BXGMO_BROWSE_FIRST | BXGMO_BROWSE_NEXT))
    return browse(queue, request.options, into);
  const bool syncpoint = (request.options & BXGMO_SYNCPOINT) != 0;
  if (!(request.options & BXGMO_MESSAGE_UNDER_CURSOR)) return queue.queue->take(into, syncpoint);
  return queue.cursor ? queue.queue->takeAt(*queue.cursor, into, syncpoint) : Found::kNothing;
}

Clock::time_point deadlineOf(BXLONG wait) {
  return Clock::now() + (wait == BXWI_UNLIMITED ? std::chrono::hours(24 * 365 * 100)
                                                : std::chrono::milliseconds(wait));
}

} // namespace

Codes Connection::get(BXHOBJ object, GetRequest& request) {
  const std::lock_guard guard(m_mutex);
  OpenQueue* queue = find(object);
  if (!queue) return failed(BXRC_HOBJ_ERROR);
  const bool browses = (request.options & (BXGMO_BROWSE_FIRST | BXGMO_BROWSE_NEXT)) != 0;
  const bool underCursor = (request.options & BXGMO_MESSAGE_UNDER_CURSOR) != 0;
  if ((browses || underCursor) && !queue->browse) return failed(BXRC_NOT_OPEN_FOR_BROWSE);
  if (!browses && !queue->input) return failed(BXRC_NOT_OPEN_FOR_INPUT);
  if (!browses && !std::exchange(queue->hasGot, true)) queue->queue->noteUse(true, false);
  if (queue->queue->definition().getInhibited && queue->queue->latestDefinition().getInhibited)
    return failed(BXRC_GET_INHIBITED);
  const Codes codes = getMessage(*queue, request);
  if (codes.completion != BXCC_FAILED || codes.reason == BXRC_TRUNCATED_FAILED)
    padInto(request.queueName, BX_NAME_LENGTH, queue->queue->definition().name);
  return codes;
}

Codes Connection::getMessage(OpenQueue& queue, GetRequest& request) {
  const Match match(request.descriptor, request.matchOptions);
  IntoBuffer into(request, match);
  const bool underCursor = (request.options & BXGMO_MESSAGE_UNDER_CURSOR) != 0;
  const bool waits = request.wait != 0 && !underCursor;
  std::optional<Clock::time_point> deadline; // looked up only when there is something to wait for
  for (;;) {
    const std::uint32_t seen = queue.queue->arrivals();
    switch (getOnce(queue, request, into)) {
    case Found::kDelivered:
      return request.returnedLength < request.dataLength ? warning(BXRC_TRUNCATED_ACCEPTED) : ok();
    case Found::kRefused: return failed(BXRC_TRUNCATED_FAILED);
    case Found::kNothing: break;
    }
    if (!queue.queue->exists()) return failed(BXRC_Q_DELETED);
    if (queue.queue->definition().getInhibited) return failed(BXRC_GET_INHIBITED);
    if (underCursor) return failed(BXRC_NO_MESSAGE_UNDER_CURSOR);
    if (waits && !deadline) deadline = deadlineOf(request.wait);
    if (!waits || Clock::now() >= *deadline) return failed(BXRC_NO_MESSAGE_AVAILABLE);
    queue.queue->waitForArrival(seen, *deadline);
  }
}

} // namespace bxm
