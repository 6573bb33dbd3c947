#include "tests/manager/faults/history.h"
#include "tests/manager/faults/load.h"
#include "tests/manager/faults/peer.h"
#include "tests/support/postgres_cluster.h"

#include <gtest/gtest.h>
#include <iostream>
#include <random>

namespace {

using namespace faults;
using namespace support;
using std::chrono::milliseconds;

const std::vector<std::string> kSettings{"fsync=off", "synchronous_standby_names='*'",
                                         "wal_keep_size=1GB"};

/// Programs that come and go, and are started again where they fail: folder, name, seed, binding,
/// program.
constexpr const char* kLoop = R"(
while [ ! -e "$1/stop" ]; do
  n=$((n + 1))
  LD_PRELOAD=$4 ASAN_OPTIONS=verify_asan_link_order=0:detect_leaks=0 \
    "$5" storm "$1/$2x$n" "$2x$n" $(($3 + n)) 3000 2>/dev/null || sleep 0.1
done)";

/// A primary with a synchronous standby: while there is none, no commit ends.
class Failover : public testing::Test {
protected:
  Failover() {
    waitForStandby();
    writeFile(home / "bxclient.ini",
              "[managers]\ndefault = M\nM = postgresql://postgres@/postgres?host=" + one.folder() +
                  "," + other.folder() + "\n");
    std::filesystem::create_directory(logs());
    const auto peer = connected();
    for (const std::string& queue : kStormQueues) peer->words("create " + queue);
  }

  std::string logs() const { return home / "logs"; }
  std::unique_ptr<Peer> connected() const {
    auto peer = std::make_unique<Peer>(home.path().string(), Environment{{"LD_PRELOAD", binding}});
    peer->words("connect");
    return peer;
  }
  void waitForStandby() {
    ASSERT_TRUE(eventually(
        [this] {
          return primary->psql("postgres", "SELECT sync_state FROM pg_stat_replication").out ==
                 "sync\n";
        },
        std::chrono::seconds(60)));
  }
  void startLoop(const std::string& name) {
    loops.push_back(std::make_unique<Process>(
        std::vector<std::string>{"/bin/sh", "-c", kLoop, "loop", logs(), name,
                                 std::to_string(random() % 1000000), binding, clientProgram()}));
    loops.back()->environment("BXM_HOME", home.path().string()).start();
  }
  void endLoops() {
    writeFile(logs() + "/stop", "");
    for (const auto& loop : loops) EXPECT_EQ(loop->wait(std::chrono::seconds(90)).status, 0);
  }
  void pause(int most) { std::this_thread::sleep_for(milliseconds(random() % most)); }
  void failOver() {
    primary->die();
    pause(2000);
    standby->promote();
    std::swap(primary, standby);
    pause(1000);
    standby->follow(*primary);
    waitForStandby();
  }
  void check() {
    History history(true);
    for (const auto& log : std::filesystem::directory_iterator(logs()))
      history.read(log.path().string());
    const auto peer = connected();
    for (const std::string& queue : kStormQueues) {
      const auto names = peer->words("browse " + queue);
      EXPECT_EQ(peer->words("depth " + queue).at(0), std::to_string(names.size()));
      history.left(queue, names);
    }
    const auto faults = history.faults();
    for (std::size_t i = 0; i < faults.size() && i < 20; ++i) ADD_FAILURE() << faults[i];
    EXPECT_TRUE(faults.empty()) << faults.size() << " faults, seed " << seed;
    EXPECT_GT(history.counts().broken, 0U);
    std::cout << history.counts() << "\n";
  }

  TempFolder home;
  PostgresCluster one{kSettings}, other{one};
  PostgresCluster *primary = &one, *standby = &other;
  const std::string binding = std::filesystem::absolute(libDir()).string() + "/libbxic_r.so";
  unsigned seed = static_cast<unsigned>(setting("FAULTS_SEED", static_cast<int>(::getpid())));
  std::mt19937 random{seed};
  std::vector<std::unique_ptr<Process>> loops;
};

TEST_F(Failover, LosesNothingAndDeliversAgainOnlyWhatWasInFlight) {
  for (const char* name : {"a", "b", "c", "d"}) startLoop(name);
  for (int left = setting("FAULTS_FAILOVERS", 2); left > 0; --left) {
    pause(4000);
    failOver();
  }
  pause(2000);
  endLoops();
  check();
}

TEST_F(Failover, IsAwaitedByACommitThatWasLookedUp) {
  const auto peer = connected();
  peer->words("sput S1 x");
  standby->die();
  peer->tell("commit");
  ASSERT_TRUE(eventually([this] {
    return primary->psql("postgres", "SELECT 1 FROM pg_stat_activity WHERE wait_event = 'SyncRep'")
               .out == "1\n";
  }));
  primary->die();
  primary->start();
  EXPECT_THROW(peer->answer(std::chrono::seconds(1)), std::runtime_error); // only one has it
  standby->start();
  EXPECT_EQ(peer->answer(), "0 0");
}

/// Commits of gets that nobody waited for are lost with the server.
TEST(ACrash, BringsBackMessagesThatASessionKnewAsGone) {
  PostgresCluster cluster({"fsync=off", "wal_writer_delay=10s"});
  TempFolder home;
  writeFile(home / "bxclient.ini",
            "[managers]\ndefault = M\nM = " + cluster.uri("postgres") + "\n");
  const Environment binding{{"LD_PRELOAD", libDir() + "/libbxic_r.so"}};
  Peer(home.path().string(), binding).words("connect");
  cluster.psql("postgres", "UPDATE \"bxm_M\".manager SET gets_wait = false");
  Peer peer(home.path().string(), binding);
  for (const char* words : {"connect", "create Q", "sputn Q m 100", "commit"}) peer.words(words);
  for (int i = 0; i < 30; ++i) {
    for (const char* words : {"sget Q", "commit"}) peer.words(words);
    std::this_thread::sleep_for(milliseconds(10)); // by and by it looks up what is gone
  }
  peer.words("sget Q");
  cluster.die();
  peer.tell("commit");
  cluster.start();
  EXPECT_EQ(peer.answer(), "2 2009");
  Peer other(home.path().string(), binding);
  other.words("connect");
  const auto left = other.words("browse Q");
  EXPECT_EQ(peer.words("get Q").at(0), left.at(0));
}

} // namespace
