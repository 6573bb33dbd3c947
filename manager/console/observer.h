#pragma once

#include "manager/console/history.h"
#include "manager/engine/administration.h"
#include "manager/view/manager_watch.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace bxm::console {

/// A manager as it was when it was last looked at.
struct ManagerView {
  std::string name;
  bool isInDatabase = false, isDefault = false;
  bool isReachable = false;
  std::string fault;       ///< empty: none
  BXLONG reason = 0;       ///< of the fault
  std::int64_t looked = 0; ///< ms since 1970; 0 never
  double lookSeconds = 0;
  std::size_t leftOut = 0;
  std::shared_ptr<const std::vector<QueueView>> queues; ///< null where it cannot be reached
};

/// The figures of all managers at one moment, as an event of a stream and as JSON.
struct Snapshot {
  std::uint64_t number = 0;
  std::string event; ///< "event: figures\ndata: {...}\n\n"
  std::string json() const;
};

/// Looks at managers, each on a thread of its own, so that one that cannot be reached holds up
/// nothing but itself. Any number of threads may ask.
class Observer {
public:
  static constexpr std::size_t kMostQueues = 1000; ///< of a manager

  /// names: the only ones to look at; empty: all there are, also those that come. Throws Failure
  /// where one of them is unknown.
  explicit Observer(std::vector<std::string> names);
  ~Observer(); ///< a look that hangs goes on
  Observer(const Observer&) = delete;
  Observer& operator=(const Observer&) = delete;

  /// False when a look is still going on after that time.
  bool stop(std::chrono::milliseconds limit);

  std::vector<ManagerView> managers() const;
  /// nullopt: there is none of that name here.
  std::optional<ManagerView> manager(const std::string& name) const;
  const History& history() const { return m_core->history; }

  /// Somebody wants figures: from now on, for a while, each second.
  void noteInterest();
  /// The figures of now.
  std::shared_ptr<const Snapshot> snapshot();
  /// The next one that is not number, once there is one; null at the limit.
  std::shared_ptr<const Snapshot> waitForOther(std::uint64_t number,
                                               std::chrono::milliseconds limit);
  /// As long as one lives somebody looks on.
  class Stream {
  public:
    explicit Stream(Observer& observer);
    ~Stream();
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

  private:
    Observer& m_observer;
  };
  std::size_t streams() const { return m_core->streams; }

private:
  using Clock = std::chrono::steady_clock;
  struct Watched {
    ManagerView view;
    bool isGone = false;
    bool hasLooked = false, isLooking = false;
    Clock::time_point begin; ///< of the look
  };
  /// What the threads share; the last one that still hangs in a look frees it.
  struct Core {
    mutable std::mutex mutex;
    std::condition_variable changed;   ///< anything below but the latest snapshot
    std::condition_variable published; ///< that, or the end
    std::vector<std::string> names;    ///< empty: all
    std::map<std::string, std::shared_ptr<Watched>> managers;
    History history;
    bool isStopping = false;
    std::size_t threads = 0;
    std::atomic<std::size_t> streams{0};
    Clock::time_point interestEnd;
    std::uint64_t looks = 0; ///< so far
    std::shared_ptr<const Snapshot> latest;
    Clock::time_point latestTime;
    bool isWatched(Clock::time_point now) const { return streams > 0 || now < interestEnd; }
  };

  using Shared = std::shared_ptr<Core>;

  template <typename Body>
  static void runApart(const Shared& core, Body body);
  static void followCatalog(const Shared& core);
  static void update(const Shared& core, const std::vector<ManagerInfo>& found);
  static void watch(Core& core, Watched& watched);
  static void look(Core& core, Watched& watched, ManagerWatch& watch);
  static void publishEachSecond(Core& core);
  static void publish(Core& core);
  static ManagerView viewOf(const Watched& watched);
  static std::vector<ManagerView> viewsOf(const Core& core);
  void waitForFirstLooks();

  const Shared m_core = std::make_shared<Core>();
};

} // namespace bxm::console
