#include "manager/console/observer.h"

#include "manager/base/failure.h"
#include "manager/console/figures_json.h"

#include <algorithm>
#include <thread>

namespace bxm::console {

namespace {

using namespace std::chrono_literals;
constexpr auto kWatchedStep = 1s, kIdleStep = 5s;
constexpr int kWatchedShare = 4, kIdleShare = 100; ///< one part of the time in so many
constexpr auto kInterest = 15s;                    ///< who scrapes comes as often
constexpr auto kCatalogStep = 2s;
constexpr auto kFirstLook = 1s;
constexpr auto kPatience = 5s;          ///< with a look
constexpr auto kFresh = 100ms;          ///< figures that are not made again for the next who asks
constexpr std::size_t kRemembered = 60; ///< looks by which a queue counts as unread

constexpr std::string_view kEventHead = "event: figures\ndata: ", kEventEnd = "\n\n";

} // namespace

std::string Snapshot::json() const {
  return event.substr(kEventHead.size(), event.size() - kEventHead.size() - kEventEnd.size());
}

Observer::Observer(std::vector<std::string> names) {
  const auto found = listManagers();
  for (const std::string& name : names)
    if (std::none_of(found.begin(), found.end(), [&](auto& each) { return each.name == name; }))
      throw Failure(BXRC_Q_MGR_NAME_ERROR, "there is no queue manager " + name);
  m_core->names = std::move(names);
  update(m_core, found);
  runApart(m_core, [core = m_core] { followCatalog(core); });
  runApart(m_core, [core = m_core] { publishEachSecond(*core); });
  waitForFirstLooks();
}

Observer::~Observer() { stop(0s); }

bool Observer::stop(std::chrono::milliseconds limit) {
  std::unique_lock lock(m_core->mutex);
  m_core->isStopping = true;
  m_core->changed.notify_all();
  m_core->published.notify_all();
  return m_core->changed.wait_for(lock, limit, [this] { return m_core->threads == 0; });
}

template <typename Body>
void Observer::runApart(const Shared& core, Body body) {
  {
    const std::lock_guard lock(core->mutex);
    ++core->threads;
  }
  std::thread([core, body = std::move(body)] {
    body();
    const std::lock_guard lock(core->mutex);
    --core->threads;
    core->changed.notify_all();
  }).detach();
}

void Observer::waitForFirstLooks() {
  std::unique_lock lock(m_core->mutex);
  m_core->changed.wait_for(lock, kFirstLook, [this] {
    return std::all_of(m_core->managers.begin(), m_core->managers.end(),
                       [](const auto& each) { return each.second->hasLooked; });
  });
}

// ---- Which managers -----------------------------------------------------------------------------

void Observer::followCatalog(const Shared& core) {
  for (;;) {
    {
      std::unique_lock lock(core->mutex);
      if (core->changed.wait_for(lock, kCatalogStep, [&] { return core->isStopping; })) return;
    }
    try {
      update(core, listManagers());
    } catch (const std::exception&) { // as it is for now
    }
  }
}

void Observer::update(const Shared& core, const std::vector<ManagerInfo>& found) {
  std::vector<std::shared_ptr<Watched>> fresh;
  {
    const std::lock_guard lock(core->mutex);
    std::map<std::string, std::shared_ptr<Watched>> managers;
    for (const ManagerInfo& info : found) {
      if (!core->names.empty() &&
          std::find(core->names.begin(), core->names.end(), info.name) == core->names.end())
        continue;
      auto& watched = managers[info.name] = core->managers[info.name];
      if (!watched) {
        fresh.push_back(watched = std::make_shared<Watched>());
        watched->view.name = info.name; // never changes: its thread reads it
      }
      watched->view.isDefault = info.isDefault;
      watched->view.isInDatabase = info.place.starts_with("postgres");
    }
    for (const auto& [name, watched] : core->managers)
      if (watched && !managers.contains(name)) {
        watched->isGone = true;
        core->history.forget(name);
      }
    core->managers = std::move(managers);
    core->changed.notify_all();
  }
  for (const auto& watched : fresh) runApart(core, [core, watched] { watch(*core, *watched); });
}

/// What a look that does not end tells.
ManagerView Observer::viewOf(const Watched& watched) {
  ManagerView view = watched.view;
  const std::chrono::duration<double> looks = Clock::now() - watched.begin;
  if (!watched.isLooking || looks < kPatience + std::chrono::duration<double>(3 * view.lookSeconds))
    return view;
  view.isReachable = false;
  view.reason = BXRC_Q_MGR_NOT_AVAILABLE;
  view.fault = "it has not answered for " +
               std::to_string(static_cast<std::int64_t>(looks.count())) + " seconds";
  view.queues.reset();
  return view;
}

std::vector<ManagerView> Observer::viewsOf(const Core& core) {
  std::vector<ManagerView> views;
  for (const auto& [name, watched] : core.managers) views.push_back(viewOf(*watched));
  return views;
}

std::vector<ManagerView> Observer::managers() const {
  const std::lock_guard lock(m_core->mutex);
  return viewsOf(*m_core);
}

std::optional<ManagerView> Observer::manager(const std::string& name) const {
  const std::lock_guard lock(m_core->mutex);
  const auto found = m_core->managers.find(name);
  return found == m_core->managers.end() ? std::nullopt : std::optional(viewOf(*found->second));
}

// ---- Looks --------------------------------------------------------------------------------------

void Observer::watch(Core& core, Watched& watched) {
  ManagerWatch manager(watched.view.name, kMostQueues, kRemembered);
  for (;;) {
    const auto begin = Clock::now();
    look(core, watched, manager);
    const auto took = Clock::now() - begin;
    std::unique_lock lock(core.mutex);
    // A connect that fails late costs the manager nothing: it is tried again soon.
    const bool isCheap = !watched.view.isReachable;
    for (;;) {
      if (core.isStopping || watched.isGone) return;
      const bool isWatched = core.isWatched(Clock::now());
      const auto step = isWatched ? kWatchedStep : kIdleStep;
      const auto due = isCheap ? begin + took + step
                               : begin + std::max<Clock::duration>(
                                             step, took * (isWatched ? kWatchedShare : kIdleShare));
      if (Clock::now() >= due) break;
      core.changed.wait_until(lock, due);
    }
  }
}

void Observer::look(Core& core, Watched& watched, ManagerWatch& watch) {
  ManagerView seen;
  const auto begin = Clock::now();
  {
    const std::lock_guard lock(core.mutex);
    watched.begin = begin;
    watched.isLooking = true;
  }
  try {
    auto queues = std::make_shared<std::vector<QueueView>>(watch.look());
    for (QueueView& queue : *queues) queue.depths.clear(); // the history has them
    seen.isReachable = true;
    seen.leftOut = watch.leftOut();
    seen.queues = std::move(queues);
  } catch (const std::exception& error) {
    seen.fault = error.what();
    seen.reason = reasonOf(error);
  }
  seen.lookSeconds = std::chrono::duration<double>(Clock::now() - begin).count();
  seen.looked = clockNow();
  const std::lock_guard lock(core.mutex);
  seen.name = watched.view.name;
  seen.isDefault = watched.view.isDefault;
  seen.isInDatabase = watched.view.isInDatabase;
  if (seen.queues && !watched.isGone) core.history.note(seen.name, seen.looked, *seen.queues);
  watched.view = std::move(seen);
  watched.hasLooked = true;
  watched.isLooking = false;
  ++core.looks;
  core.changed.notify_all();
}

// ---- Who looks on -------------------------------------------------------------------------------

/// With the mutex held.
void Observer::publish(Core& core) {
  auto snapshot = std::make_shared<Snapshot>();
  snapshot->number = core.latest ? core.latest->number + 1 : 1;
  snapshot->event = kEventHead;
  snapshot->event += figuresOf(viewsOf(core)).dump(-1, ' ', false, Json::error_handler_t::replace);
  snapshot->event += kEventEnd;
  core.latest = std::move(snapshot);
  core.latestTime = Clock::now();
  core.published.notify_all();
}

/// As soon as there is something new, at most once a second; also when there is nothing new.
void Observer::publishEachSecond(Core& core) {
  constexpr auto kLeast = 900ms, kMost = 1100ms;
  std::unique_lock lock(core.mutex);
  for (std::uint64_t looks = 0; !core.isStopping;) {
    const auto due = core.latestTime + (core.looks != looks ? kLeast : kMost);
    if (core.streams == 0) {
      core.changed.wait(lock);
    } else if (Clock::now() < due) {
      core.changed.wait_until(lock, due);
    } else {
      looks = core.looks;
      publish(core);
    }
  }
}

void Observer::noteInterest() {
  const std::lock_guard lock(m_core->mutex);
  const bool wasWatched = m_core->isWatched(Clock::now());
  m_core->interestEnd = Clock::now() + kInterest;
  if (!wasWatched) m_core->changed.notify_all();
}

std::shared_ptr<const Snapshot> Observer::snapshot() {
  const std::lock_guard lock(m_core->mutex);
  const bool isOld = Clock::now() - m_core->latestTime > kFresh;
  if (!m_core->latest || (m_core->streams == 0 && isOld)) publish(*m_core);
  return m_core->latest;
}

std::shared_ptr<const Snapshot> Observer::waitForOther(std::uint64_t number,
                                                       std::chrono::milliseconds limit) {
  std::unique_lock lock(m_core->mutex);
  const auto isOther = [&] { return m_core->latest && m_core->latest->number != number; };
  m_core->published.wait_for(lock, limit, [&] { return isOther() || m_core->isStopping; });
  return isOther() ? m_core->latest : nullptr;
}

Observer::Stream::Stream(Observer& observer) : m_observer(observer) {
  const std::lock_guard lock(observer.m_core->mutex);
  ++observer.m_core->streams;
  observer.m_core->changed.notify_all();
}

Observer::Stream::~Stream() { --m_observer.m_core->streams; }

} // namespace bxm::console
