#include "manager/engine/connection.h"

#include "manager/base/failure.h"
#include "manager/base/names.h"
#include "manager/store/message.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace bxm {

namespace {

/// What is wrong with a descriptor to be put; 0 nothing.
BXLONG faultOf(const BXMD& descriptor) {
  if (descriptor.expiry != BXEI_UNLIMITED && descriptor.expiry <= 0) return BXRC_EXPIRY_ERROR;
  if (descriptor.priority < BXPRI_AS_Q_DEF) return BXRC_PRIORITY_ERROR;
  if (descriptor.persistence < BXPER_NOT_PERSISTENT || descriptor.persistence > BXPER_AS_Q_DEF)
    return BXRC_PERSISTENCE_ERROR;
  return BXRC_NONE;
}

/// Why a queue takes no such message; 0 it does.
BXLONG refusalOf(const QueueDefinition& queue, std::string_view data) {
  if (queue.putInhibited) return BXRC_PUT_INHIBITED;
  const auto most = static_cast<std::size_t>(queue.maxMessageLength);
  return data.size() > most ? BXRC_MESSAGE_TOO_BIG_FOR_Q : BXRC_NONE;
}

/// Version 1 descriptors end before the group identifier: what lies there is not the caller's.
BXMD withDefaultTail(const BXMD& descriptor) {
  if (descriptor.version != BXMD_VERSION_1) return descriptor;
  BXMD whole = BXMD_DEFAULT;
  std::memcpy(&whole, &descriptor, offsetof(BXMD, groupId));
  return whole;
}

} // namespace

Codes Connection::put(BXHOBJ object, const PutRequest& request) {
  const std::lock_guard guard(m_mutex);
  OpenQueue* queue = find(object);
  if (!queue) return failed(BXRC_HOBJ_ERROR);
  if (!queue->output) return failed(BXRC_NOT_OPEN_FOR_OUTPUT);
  if (const BXLONG fault = faultOf(request.descriptor)) return failed(fault);
  if (request.data.size() > static_cast<std::size_t>(kMessageLengthLimit))
    return failed(BXRC_MESSAGE_TOO_BIG_FOR_Q_MGR);
  if (!std::exchange(queue->hasPut, true)) queue->queue->noteUse(false, true);
  if (refusalOf(queue->queue->definition(), request.data))
    if (const BXLONG reason = refusalOf(queue->queue->latestDefinition(), request.data))
      return failed(reason);
  if (!queue->queue->exists()) return failed(BXRC_Q_DELETED);
  const BXLONG asked = request.descriptor.priority;
  const int priority = asked == BXPRI_AS_Q_DEF ? queue->queue->definition().defaultPriority
                                               : std::min<BXLONG>(asked, BXPRI_MAXIMUM);
  const Codes codes = store(*queue, request, priority);
  return codes.completion == BXCC_OK && asked > BXPRI_MAXIMUM
             ? warning(BXRC_PRIORITY_EXCEEDS_MAXIMUM)
             : codes;
}

Codes Connection::store(OpenQueue& queue, const PutRequest& request, int priority) {
  const QueueDefinition& definition = queue.queue->definition();
  const bool makesId = isZero(request.descriptor.messageId);
  if (makesId) ++m_lastId.counter;
  const MessageTimes times = encodeHeader(request.descriptor, definition);

  const bool syncpoint = (request.options.options & BXPMO_SYNCPOINT) != 0;
  if (!queue.queue->reserve(syncpoint)) return failed(BXRC_Q_FULL);
  PutBatch& batch = syncpoint ? m_puts : m_single;
  try {
    batch.append(definition.id, priority, m_header, request.data, times.expires != 0);
  } catch (const std::exception&) {
    queue.queue->unreserve();
    throw;
  }
  if (!syncpoint)
    if (const Codes codes = storeSingle(); codes.completion != BXCC_OK) return codes;
  if (makesId) m_lastId.writeTo(request.descriptor.messageId);
  request.descriptor.priority = priority;
  setPutTime(request.descriptor, times.put);
  padInto(request.options.resolvedQueueName, BX_NAME_LENGTH, definition.name);
  padInto(request.options.resolvedManagerName, BX_NAME_LENGTH, m_manager);
  return ok();
}

/// Into m_header.
MessageTimes Connection::encodeHeader(const BXMD& descriptor, const QueueDefinition& definition) {
  BXMD stored = withDefaultTail(descriptor);
  stored.backoutCount = 0;
  if (stored.persistence == BXPER_AS_Q_DEF) stored.persistence = definition.defaultPersistence;
  MessageTimes times;
  times.put = m_session->now();
  if (stored.expiry != BXEI_UNLIMITED)
    times.expires = times.put + std::int64_t{stored.expiry} * 100;
  m_header.clear();
  encodeMessageHeader(stored, times, m_lastId, m_header);
  return times;
}

Codes Connection::storeSingle() {
  BXLONG reason = BXRC_NONE;
  const Committed committed = m_session->put(m_single, reason);
  return committed == Committed::kQueueGone ? failed(BXRC_Q_DELETED) : codesOf(committed, reason);
}

} // namespace bxm
