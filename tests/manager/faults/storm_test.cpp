#include "tests/manager/faults/history.h"
#include "tests/manager/faults/load.h"
#include "tests/manager/faults/peer.h"
#include "tests/support/postgres_cluster.h"
#include "tests/support/temp_folder.h"

#include <csignal>
#include <gtest/gtest.h>
#include <iostream>
#include <random>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace faults {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// Workers on one manager that die by SIGKILL at random moments and are replaced.
class Storm {
public:
  Storm() {
    if (std::getenv("STORM_ON")) moveIntoDatabase();
    Peer peer(home(), m_binding);
    peer.words("connect");
    for (const std::string& queue : kStormQueues) peer.words("create " + queue);
    peer.words("create PROBE");
    peer.words("disconnect");
    std::cout << "seed " << m_seed << " (FAULTS_SEED)\n";
  }

  void startWorker(milliseconds life) {
    const std::string name = "w" + std::to_string(++m_started);
    m_logs.push_back(m_folder / name);
    m_workers.push_back(client(
        {"storm", m_logs.back(), name, std::to_string(m_random()), std::to_string(life.count())},
        environment()));
    m_workers.back()->start();
  }
  /// By SIGKILL, as any program whose scope ends.
  void killOne() {
    m_workers.erase(m_workers.begin() + static_cast<std::ptrdiff_t>(roll(m_workers.size())));
  }
  void letEnd() {
    for (const auto& worker : std::exchange(m_workers, {})) EXPECT_EQ(worker->wait().status, 0);
  }
  std::size_t roll(std::size_t sides) { return m_random() % sides; }

  /// A newcomer does not wait for anything.
  void lookFromOutside() {
    const auto took = timed([&] {
      Peer peer(home(), m_binding);
      peer.words("connect");
      for (const std::string& queue : kStormQueues) {
        peer.words("depth " + queue);
        peer.words("browse " + queue);
      }
      peer.words("put PROBE x");
      peer.words("disconnect");
    });
    EXPECT_LT(took, std::chrono::seconds(2));
    m_slowest = std::max(m_slowest, took);
  }

  void check() {
    History history;
    for (const std::string& log : m_logs) history.read(log);
    Peer peer(home(), m_binding);
    peer.words("connect");
    for (const std::string& queue : kStormQueues) {
      const auto names = peer.words("browse " + queue);
      EXPECT_EQ(peer.words("depth " + queue).at(0), std::to_string(names.size()));
      history.left(queue, names);
    }
    const auto faults = history.faults();
    for (std::size_t i = 0; i < faults.size() && i < 20; ++i) ADD_FAILURE() << faults[i];
    if (!faults.empty()) ADD_FAILURE() << faults.size() << " faults, seed " << m_seed;
    std::cout << history.counts() << "; slowest look from outside " << m_slowest.count() << " ms\n";
  }

private:
  std::string home() const { return m_home.path().string(); }
  Environment environment() const {
    Environment all = m_binding;
    all["BXM_HOME"] = home();
    return all;
  }
  void moveIntoDatabase() {
    m_cluster = std::make_unique<support::PostgresCluster>();
    support::writeFile(m_home / "bxclient.ini",
                       "[managers]\ndefault = M\nM = " + m_cluster->uri("postgres") + "\n");
    m_binding["LD_PRELOAD"] = support::libDir() + "/libbxic_r.so";
  }

  support::TempFolder m_home, m_folder;
  std::unique_ptr<support::PostgresCluster> m_cluster;
  Environment m_binding;
  unsigned m_seed = static_cast<unsigned>(setting("FAULTS_SEED", static_cast<int>(::getpid())));
  std::mt19937 m_random{m_seed};
  std::vector<std::unique_ptr<support::Process>> m_workers;
  std::vector<std::string> m_logs;
  int m_started = 0;
  milliseconds m_slowest{0};
};

/// And who comes after a death does not wait.
TEST(Storm, EveryMessageIsDeliveredOnceOrStillThereAndInOrder) {
  Storm storm;
  const auto end = Clock::now() + std::chrono::seconds(setting("FAULTS_SECONDS", 20));
  for (int i = 0; i < 4; ++i) storm.startWorker(milliseconds(60000));
  while (Clock::now() < end) {
    std::this_thread::sleep_for(milliseconds(20 + storm.roll(150)));
    storm.killOne();
    storm.lookFromOutside();
    storm.startWorker(milliseconds(600000));
  }
  for (int i = 0; i < 4; ++i) storm.killOne();
  for (int i = 0; i < 2; ++i) storm.startWorker(milliseconds(300));
  storm.letEnd();
  storm.check();
}

} // namespace
} // namespace faults
