#include "manager/engine/connection.h"

#include "manager/store/catalog.h"
#include "manager/store/failure.h"
#include "manager/store/names.h"

#include <random>

namespace bxm {

namespace {

std::uint64_t randomNumber() {
  std::random_device device;
  return (static_cast<std::uint64_t>(device()) << 32) | device();
}

} // namespace

Connection::Connection(std::string_view manager)
    : m_session(catalog().connect(manager)), m_puts(m_session->scratchFolder()),
      m_single(m_session->scratchFolder()), m_lastId{randomNumber(), 0} {}

OpenQueue* Connection::find(BXHOBJ object) {
  if (object < 1 || static_cast<std::size_t>(object) > m_queues.size()) return nullptr;
  return m_queues[static_cast<std::size_t>(object) - 1].get();
}

Codes Connection::open(std::string_view name, std::string_view manager, BXLONG options,
                       BXHOBJ& object) {
  const std::lock_guard guard(m_mutex);
  if (!m_session) return failed(BXRC_HCONN_ERROR);
  if (!manager.empty() && manager != m_session->managerName())
    return failed(BXRC_UNKNOWN_OBJECT_Q_MGR);
  const auto definition = isName(name) ? m_session->findQueue(name) : std::nullopt;
  if (!definition) return failed(BXRC_UNKNOWN_OBJECT);
  StoreQueue& queue = m_session->open(*definition);
  auto opened = std::make_unique<OpenQueue>(OpenQueue{queue, (options & BXOO_INPUT_SHARED) != 0,
                                                      (options & BXOO_BROWSE) != 0,
                                                      (options & BXOO_OUTPUT) != 0, std::nullopt});
  std::size_t index = 0;
  while (index < m_queues.size() && m_queues[index]) ++index;
  if (index == m_queues.size()) m_queues.emplace_back();
  m_queues[index] = std::move(opened);
  object = static_cast<BXHOBJ>(index) + 1;
  return ok();
}

Codes Connection::close(BXHOBJ object) {
  const std::lock_guard guard(m_mutex);
  if (!find(object)) return failed(BXRC_HOBJ_ERROR);
  m_queues[static_cast<std::size_t>(object) - 1].reset();
  return ok();
}

// ---- Units of work ------------------------------------------------------------------------------

Codes Connection::codesOf(Committed committed, BXLONG reason) {
  switch (committed) {
  case Committed::kDone: return ok();
  case Committed::kFailed: return failed(reason);
  case Committed::kQueueGone: return failed(BXRC_BACKED_OUT);
  case Committed::kUnknown: return failed(BXRC_CONNECTION_BROKEN);
  }
  return failed(BXRC_UNEXPECTED);
}

Codes Connection::commit() {
  const std::lock_guard guard(m_mutex);
  if (!m_session) return failed(BXRC_HCONN_ERROR);
  BXLONG reason = BXRC_NONE;
  const Committed committed = m_session->commit(m_puts, reason);
  return codesOf(committed, reason);
}

Codes Connection::backout() {
  const std::lock_guard guard(m_mutex);
  if (!m_session) return failed(BXRC_HCONN_ERROR);
  m_session->backout(m_puts);
  return ok();
}

Codes Connection::disconnect() {
  const Codes codes = commit();
  const std::lock_guard guard(m_mutex);
  m_queues.clear();
  m_session.reset();
  return codes;
}

} // namespace bxm
