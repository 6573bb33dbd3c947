#include "manager/store/log/settler.h"

#include "manager/base/failure.h"
#include "manager/base/kill_point.h"
#include "manager/store/log/log_store.h"
#include "manager/store/log/reclaim.h"

#include <algorithm>
#include <csignal>

namespace bxm {

namespace {
constexpr std::size_t kMostSearched = 16;
/// Where takes are logged without items.
const LogWriter::Runs kNoRuns = [](const auto&) {};
} // namespace

void addTake(std::vector<TakeGroup>& takes, Place place, Generation generation, TakeKind kind) {
  // Messages of several writers lie in their several files in turns.
  const std::size_t first = takes.size() > kMostSearched ? takes.size() - kMostSearched : 0;
  for (std::size_t i = takes.size(); i-- > first;)
    if (takes[i].file == place.file && takes[i].generation == generation && takes[i].kind == kind &&
        takes[i].offsets.size() < LogWriter::kMostTakes) {
      takes[i].offsets.push_back(place.offset);
      return;
    }
  takes.push_back({place.file, generation, {place.offset}, kind});
}

bool dropLive(const Runtime& runtime, const std::vector<TakeGroup>& takes) {
  bool emptied = false;
  for (const TakeGroup& group : takes)
    emptied = dropLive(runtime.file(group.file), group.generation,
                       static_cast<std::uint32_t>(group.offsets.size())) ||
              emptied;
  return emptied;
}

// ---- One connection's ---------------------------------------------------------------------------

void Unsettled::add(QueueShare& share, const std::uint64_t* positions, std::size_t count) {
  const std::size_t added = m_added.load(std::memory_order_relaxed);
  for (std::size_t i = 0; i < count; ++i) m_ring[(added + i) % kRing] = {&share, positions[i]};
  m_added.store(added + count, std::memory_order_release);
}

void Unsettled::settle() {
  const std::lock_guard turn(m_turn);
  const std::size_t begin = m_settled, end = m_added.load(std::memory_order_acquire);
  if (begin == end) return;
  const auto start = Clock::now();
  m_begun = end;
  Runtime& runtime = m_store.runtime();
  std::vector<TakeGroup> takes;
  for (std::size_t i = begin; i < end; ++i) {
    const auto& entry = at(i).share->index.entry(at(i).position);
    addTake(takes, runtime, Entry::placeOf(entry.load()));
  }
  BXM_KILL_POINT("settle-begin");
  {
    const std::lock_guard writes(m_writer.mutex());
    BXLONG reason = BXRC_NONE;
    if (m_writer.write({runtime.nextNumber(), takes, kNoRuns, nullptr}, reason) !=
        LogWriter::Result::kDone)
      throw Failure(reason, "what was got cannot be written to the log");
    m_writer.done();
  }
  BXM_KILL_POINT("settle-written");
  for (std::size_t i = begin; i < end; ++i) {
    at(i).share->index.markGone(at(i).position, m_connection);
    BXM_KILL_POINT("settle-entry");
  }
  if (dropLive(runtime, takes)) m_reclaimDue = true;
  m_settled = end;
  pace(start, end - begin);
}

/// Settling begins early, so that what is got meanwhile has room. Where it takes so long that the
/// connection has to wait for it in any case, fewer flushes are faster: it settles all at once when
/// there is no room.
void Unsettled::pace(Clock::time_point begin, std::size_t count) {
  const auto took = Clock::now() - begin;
  const auto apart = begin - std::exchange(m_lastBegin, begin) - m_waited.exchange({});
  const double meanwhile = static_cast<double>(count) * static_cast<double>(took.count()) /
                           static_cast<double>(std::max<std::int64_t>(apart.count(), 1));
  m_urgentAt = meanwhile < kMost ? kMost / 2 : SIZE_MAX;
}

void Unsettled::waitForRoom() {
  const auto begin = Clock::now();
  settle();
  m_waited = m_waited.load() + (Clock::now() - begin);
}

void Unsettled::reclaimIfDue() {
  if (m_store.runtime().isReclaimPaused()) return;
  const bool due = m_reclaimDue.exchange(false) || m_store.runtime().recountWanted().load() != 0;
  if (due) reclaim(m_store, m_writer, m_connection);
}

void Unsettled::reclaimSoon() {
  m_reclaimDue = true;
  m_store.settler().added(*this);
}

// ---- All of a process's -------------------------------------------------------------------------

Settler::~Settler() {
  {
    const std::lock_guard guard(m_mutex);
    m_stop = true;
  }
  m_wake.notify_all();
  if (m_thread.joinable()) m_thread.join();
}

void Settler::join(Unsettled& member) {
  const std::lock_guard guard(m_pass);
  m_members.insert(&member);
}

void Settler::leave(Unsettled& member) {
  const std::lock_guard guard(m_pass);
  m_members.erase(&member);
}

void Settler::added(const Unsettled& member) noexcept {
  const bool hurry = member.isUrgent();
  if (m_dirty && (!hurry || m_hurry)) return; // the thread knows
  {
    const std::lock_guard guard(m_mutex);
    m_dirty = true;
    if (hurry) m_hurry = true;
    if (!m_thread.joinable() && !m_threadless) startThread();
  }
  m_wake.notify_one();
}

void Settler::settleAll() {
  const std::lock_guard guard(m_pass);
  for (Unsettled* member : m_members) {
    member->settle();
    member->reclaimIfDue();
  }
}

void Settler::startThread() {
  sigset_t all, before;
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before); // signals are the program's, not this thread's
  try {
    m_thread = std::thread([this] { run(); });
  } catch (const std::exception&) {
    m_threadless = true; // the bound of messages still holds, and the disconnect settles the rest
  }
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void Settler::run() {
  std::unique_lock lock(m_mutex);
  while (!m_stop) {
    m_wake.wait(lock, [this] { return m_stop || m_dirty; });
    m_wake.wait_for(lock, kLongest, [this] { return m_stop || m_hurry; });
    if (m_stop) return;
    m_dirty = false;
    m_hurry = false;
    lock.unlock();
    bool failed = false;
    try {
      settleAll();
    } catch (const std::exception&) {
      failed = true; // the next reader that passes the bound is told
    }
    lock.lock();
    if (failed) m_dirty = true;
  }
}

} // namespace bxm
