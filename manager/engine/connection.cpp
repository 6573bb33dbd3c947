#include "manager/engine/connection.h"

#include "manager/base/failure.h"
#include "manager/base/names.h"
#include "manager/base/random_number.h"
#include "manager/store/catalog.h"

#include <atomic>

namespace bxm {

namespace {

/// Never the same twice in a process, so that an ended handle, or another connection's, is noticed.
BXHOBJ nextHandle() {
  static std::atomic<std::uint32_t> last{0};
  std::uint32_t next;
  do next = (last.fetch_add(1) + 1) & INT32_MAX;
  while (next == 0);
  return static_cast<BXHOBJ>(next);
}

} // namespace

Connection::Connection(std::string_view manager)
    : m_session(catalog().connect(manager)), m_manager(m_session->managerName()),
      m_puts(m_session->scratchFolder()),
      m_single(m_session->scratchFolder()), m_lastId{randomNumber(), 0} {}

OpenQueue* Connection::find(BXHOBJ object) {
  const auto found = m_queues.find(object);
  return found == m_queues.end() ? nullptr : found->second.get();
}

Codes Connection::open(std::string_view name, std::string_view manager, BXLONG options,
                       BXHOBJ& object) {
  const std::lock_guard guard(m_mutex);
  if (!m_session) return failed(BXRC_HCONN_ERROR);
  if (!manager.empty() && manager != m_manager) return failed(BXRC_UNKNOWN_OBJECT_Q_MGR);
  const auto definition = isName(name) ? m_session->findQueue(name) : std::nullopt;
  if (!definition) return failed(BXRC_UNKNOWN_OBJECT);
  auto opened = std::make_unique<OpenQueue>(OpenQueue{
      m_session->open(*definition), (options & BXOO_INPUT_SHARED) != 0,
      (options & BXOO_BROWSE) != 0, (options & BXOO_OUTPUT) != 0, std::nullopt, false, false});
  const BXHOBJ handle = nextHandle();
  m_queues[handle] = std::move(opened);
  object = handle;
  return ok();
}

Codes Connection::close(BXHOBJ object) {
  const std::lock_guard guard(m_mutex);
  return m_queues.erase(object) == 1 ? ok() : failed(BXRC_HOBJ_ERROR);
}

// ---- Units of work ------------------------------------------------------------------------------

Codes Connection::codesOf(Committed committed, BXLONG reason) {
  switch (committed) {
  case Committed::kDone: return ok();
  case Committed::kFailed: return failed(reason);
  case Committed::kQueueGone: return failed(BXRC_BACKED_OUT);
  case Committed::kUnknown: return failed(BXRC_OUTCOME_UNKNOWN);
  }
  return failed(BXRC_UNEXPECTED);
}

Codes Connection::commit() {
  const std::lock_guard guard(m_mutex);
  return m_session ? commitUnitOfWork() : failed(BXRC_HCONN_ERROR);
}

Codes Connection::commitUnitOfWork() {
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
  const std::lock_guard guard(m_mutex);
  if (!m_session) return failed(BXRC_HCONN_ERROR);
  const Codes codes = commitUnitOfWork();
  m_queues.clear();
  m_session.reset();
  return codes;
}

} // namespace bxm
