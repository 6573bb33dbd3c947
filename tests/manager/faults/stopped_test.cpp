#include "tests/manager/faults/load.h"
#include "tests/manager/faults/peer.h"
#include "tests/support/process.h"
#include "tests/support/temp_folder.h"

#include <csignal>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace faults {
namespace {

using std::chrono::milliseconds;

class Stopped : public ::testing::Test {
protected:
  Stopped() : m_one(m_home.path().string()), m_other(m_home.path().string()) {
    m_one.words("connect");
    m_one.words("create Q");
    m_other.words("connect");
    for (const char* words : {"put Q a", "put Q b", "put Q c"}) m_other.words(words);
  }
  /// Everything that another process may want, within a second.
  void expectOthersWork(const std::string& next) {
    EXPECT_LT(timed([&] {
                EXPECT_EQ(m_other.words("sget Q").at(0), next);
                m_other.words("sput Q new");
                m_other.words("commit");
                m_other.words("browse Q");
                m_other.words("create R");
                m_other.words("delete R");
                Peer newcomer(m_home.path().string());
                newcomer.words("connect");
                newcomer.words("depth Q");
                newcomer.words("disconnect");
              }),
              milliseconds(1000));
  }

  support::TempFolder m_home;
  Peer m_one, m_other;
};

TEST_F(Stopped, WithAMessageInHandKeepsItAndHoldsNobodyUp) {
  EXPECT_EQ(m_one.words("sget Q").at(0), "a");
  m_one.signal(SIGSTOP);
  expectOthersWork("b");
  EXPECT_EQ(m_other.words("browse Q"), (std::vector<std::string>{"c", "new"}));
  m_one.signal(SIGCONT);
  m_one.words("backout");
  EXPECT_EQ(m_other.words("browse Q"), (std::vector<std::string>{"a", "c", "new"}));
}

TEST_F(Stopped, WhileItWaitsTakesNothingUntilItGoesOn) {
  for (const char* expected : {"a", "b", "c"}) EXPECT_EQ(m_one.words("get Q").at(0), expected);
  m_one.tell("get Q -1");
  ::usleep(50'000);
  m_one.signal(SIGSTOP);
  m_other.words("put Q d");
  m_other.words("put Q e");
  expectOthersWork("d");
  m_one.signal(SIGCONT);
  EXPECT_EQ(m_one.answer(), "0 0 e");
}

TEST_F(Stopped, AndThenKilledGivesBackWhatItHad) {
  EXPECT_EQ(m_one.words("sget Q").at(0), "a");
  m_one.signal(SIGSTOP);
  m_one.signal(SIGKILL);
  m_one.waitForDeath();
  EXPECT_EQ(m_other.words("get Q 1000").at(0), "a");
}

/// By Ctrl-Z, not by SIGSTOP, which no process can put off.
TEST_F(Stopped, InTheMiddleOfAnythingHoldsNobodyUp) {
  for (const std::string& queue : kStormQueues) m_other.words("create " + queue);
  const pid_t worker = startClient({"storm", "/dev/null", "w", "7", "20000"},
                                   {{"BXM_HOME", m_home.path().string()}}, -1, -1);
  ::usleep(200'000);
  for (unsigned round = 0; round < 60; ++round) {
    ::usleep(round * 131 % 5000);
    ::kill(worker, SIGTSTP);
    int status = 0;
    ASSERT_EQ(::waitpid(worker, &status, WUNTRACED), worker);
    ASSERT_TRUE(WIFSTOPPED(status)) << "ended with " << status;
    EXPECT_LT(timed([&] { m_other.words("put Q more"); }), milliseconds(1000));
    ::kill(worker, SIGCONT);
  }
  ::kill(worker, SIGKILL);
  ::waitpid(worker, nullptr, 0);
}

// ---- A death beside a process that waits --------------------------------------------------------

TEST_F(Stopped, AWaiterGetsWhatADeadProcessHadTaken) {
  for (const char* expected : {"a", "b", "c"}) EXPECT_EQ(m_one.words("sget Q").at(0), expected);
  m_other.tell("get Q 5000");
  ::usleep(100'000);
  m_one.signal(SIGKILL);
  m_one.waitForDeath();
  EXPECT_LT(timed([&] { EXPECT_EQ(m_other.answer(), "0 0 a"); }), milliseconds(1000));
}

// ---- Clock --------------------------------------------------------------------------------------

/// The time of day as some processes see it, in seconds from the true one.
class Clock {
public:
  Clock() { turnTo(0); }
  void turnTo(std::int64_t seconds) const {
    support::writeFile(m_folder / "clock", {reinterpret_cast<const char*>(&seconds), 8});
  }
  Environment environment() const {
    return {{"LD_PRELOAD", preloadLibrary()}, {"FAULTS_CLOCK", m_folder / "clock"}};
  }

private:
  support::TempFolder m_folder;
};

TEST(ClockThatJumpsBack, StopsNobodyAndLosesNothing) {
  const Clock clock;
  support::TempFolder home;
  Peer peer(home.path().string(), clock.environment());
  peer.words("connect");
  peer.words("create Q");
  peer.words("put Q first");
  peer.words("eput Q brief 600");
  clock.turnTo(-86400);
  peer.words("put Q second");
  EXPECT_EQ(peer.words("browse Q"), (std::vector<std::string>{"first", "brief", "second"}));
  for (const char* expected : {"first", "brief", "second"})
    EXPECT_EQ(peer.words("get Q").at(0), expected);
  EXPECT_LT(timed([&] { EXPECT_EQ(peer.ask("get Q 100"), "2 2033"); }), milliseconds(1000));
  peer.words("put Q third");
  peer.words("get Q"); // settles by a clock of its own
  clock.turnTo(86400);
  peer.words("eput Q brief 10");
  EXPECT_EQ(peer.words("depth Q").at(0), "1");
  clock.turnTo(86402);
  EXPECT_EQ(peer.ask("get Q"), "2 2033");
  clock.turnTo(0);
  EXPECT_EQ(peer.ask("get Q"), "2 2033");
  EXPECT_EQ(peer.words("depth Q").at(0), "0");
}

} // namespace
} // namespace faults
