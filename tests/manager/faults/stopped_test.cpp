#include "tests/manager/faults/peer.h"
#include "tests/support/process.h"
#include "tests/support/temp_folder.h"

#include <algorithm>
#include <csignal>
#include <gtest/gtest.h>
#include <iostream>
#include <random>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace faults {
namespace {

using std::chrono::milliseconds;

using support::Process;
using Names = std::vector<std::string>;

constexpr int kRecords = 4000;

std::string repeated(const std::string& words, int count, bool numbered) {
  std::string text;
  for (int i = 0; i < count; ++i) text += words + (numbered ? std::to_string(i) : "") + "\n";
  return text;
}

/// A program that works on the queue V, or makes and removes W, and is stopped over it.
struct Work {
  const char* name;
  Names program; ///< without arguments: the client
  std::string queued, input;
};

const Work kWorks[] = {
    {"Load", {"-f", "V"}, "", repeated("r", kRecords, true)},
    {"Read", {"-r", "V"}, repeated("r", kRecords, true), ""},
    {"Purge", {"-k", "V"}, repeated("r", kRecords, true), ""},
    {"Wait", {}, "", "connect\n" + repeated("get V 2", 100, false)},
    {"MakeAndRemove", {}, "", "connect\n" + repeated("create W\ndelete W", 100, false)},
    {"Settle", {}, repeated("r", kRecords, true), "connect\n" + repeated("get V", kRecords, false)},
};

class Stopped : public ::testing::TestWithParam<Work> {
protected:
  Stopped() : m_other(m_home.path().string()) {
    for (const char* words : {"connect", "create V", "create O"}) m_other.words(words);
  }

  static Names command(Names arguments) {
    arguments.insert(arguments.begin(),
                     arguments.empty() ? clientProgram() : support::binDir() + "/ferry");
    return arguments;
  }
  void queue(const std::string& text) {
    Process loader(command({"-f", "V"}));
    ASSERT_EQ(loader.environment("BXM_HOME", m_home.path().string()).input(text).run().status, 0);
  }

  /// Everything that others may want while the victim stands still, each within a second.
  void expectOthersGetOn(const std::string& when) {
    const std::string mine = "x" + std::to_string(m_put.size());
    m_put.push_back(mine);
    std::string w = "2";
    for (const std::string& words : {"put V " + mine,
                                     {"get V"},
                                     {"browse V"},
                                     {"depth V"},
                                     {"put O y"},
                                     {"get O"},
                                     {"browse O"},
                                     {"create R"},
                                     {"delete R"},
                                     {"create W"},
                                     {"put W w"},
                                     {"get W"},
                                     {"browse W"},
                                     {"delete W"},
                                     {"disconnect"},
                                     {"connect"},
                                     {"depth V"},
                                     std::string("depth O")}) {
      std::string answer;
      const auto took = timed([&] { answer = m_other.ask(words).value_or("it died"); });
      EXPECT_LT(took, milliseconds(1000)) << words << ", " << when;
      m_slowest = std::max(m_slowest, took);
      const bool done = answer.starts_with("0 0");
      if (words == "get V" && done) m_got.push_back(answer.substr(4));
      if (words == "put W w") w = done ? "0 0 w" : "2";
      EXPECT_TRUE(words == "get W" ? answer.starts_with(w)
                                   : done || words == "get V" || words.find(" W") != words.npos)
          << words << ": " << answer << ", " << when;
    }
  }

  /// True when it was stopped before it had ended.
  bool stop(Process& victim, int signal, const std::string& when) {
    victim.signal(signal);
    siginfo_t state{};
    ::waitid(P_PID, static_cast<id_t>(victim.pid()), &state, WSTOPPED | WEXITED | WNOWAIT);
    if (state.si_code != CLD_STOPPED) return false;
    expectOthersGetOn(when);
    victim.signal(SIGCONT);
    return true;
  }

  /// One run of the victim; signal 0 does not stop it.
  bool run(int signal, std::chrono::microseconds delay) {
    const Work& work = GetParam();
    const std::string when =
        "signal " + std::to_string(signal) + " after " + std::to_string(delay.count()) + " us";
    m_put.clear();
    m_got.clear();
    queue(work.queued);
    Process victim(command(work.program));
    victim.environment("BXM_HOME", m_home.path().string()).inOwnGroup().input(work.input);
    const auto begin = std::chrono::steady_clock::now();
    victim.start();
    std::this_thread::sleep_for(delay);
    const bool stopped = signal != 0 && stop(victim, signal, when);
    const support::Result ended = victim.wait();
    m_life = std::chrono::steady_clock::now() - begin;
    check(ended, when);
    return stopped;
  }

  /// All that was put was got once or is still there.
  void check(const support::Result& ended, const std::string& when) {
    const Work& work = GetParam();
    EXPECT_EQ(ended.status, 0) << ended.err << ", " << when;
    for (const std::string* text : {&work.queued, &work.input})
      for (const std::string& word : split(*text))
        if (word.starts_with("r")) m_put.push_back(word);
    for (const std::string& word : split(ended.out))
      if (word.starts_with("r") || word.starts_with("x")) m_got.push_back(word);
    const std::size_t purged = ended.err.find("Purged") == std::string::npos
                                   ? 0
                                   : static_cast<std::size_t>(std::atoi(ended.err.c_str() + 1));
    const Names left = m_other.words("browse V");
    m_got.insert(m_got.end(), left.begin(), left.end());
    std::sort(m_put.begin(), m_put.end());
    std::sort(m_got.begin(), m_got.end());
    Names wrong;
    std::set_difference(m_got.begin(), m_got.end(), m_put.begin(), m_put.end(),
                        std::back_inserter(wrong));
    EXPECT_EQ(wrong, Names{}) << when;
    EXPECT_EQ(m_got.size() + purged, m_put.size()) << when;
    EXPECT_EQ(m_other.words("depth V").at(0), std::to_string(left.size())) << when;
    m_other.ask("delete W 1");
    for (const char* words : {"create W", "delete W", "delete V 1", "create V"})
      m_other.words(words);
  }

  support::TempFolder m_home;
  Peer m_other;
  Names m_put, m_got;
  std::chrono::steady_clock::duration m_life{};
  milliseconds m_slowest{0};
};

TEST_P(Stopped, AtAnyMomentHoldsNobodyUpAndLosesNothing) {
  using std::chrono::microseconds;
  const int wanted = setting("FAULTS_STOPS", 7), seed = setting("FAULTS_SEED", ::getpid());
  std::mt19937 random(static_cast<unsigned>(seed));
  run(0, {});
  const auto life = std::chrono::duration_cast<microseconds>(m_life).count();
  int stops = 0;
  for (int i = 0; stops < wanted && i < 4 * wanted; ++i) // more of them early: some wait at the end
    stops += run(i % 2 ? SIGSTOP : SIGTSTP,
                 microseconds(random() % static_cast<unsigned>(life >> (i / 2 % 4))));
  EXPECT_EQ(stops, wanted);
  std::cout << GetParam().name << ": " << stops << " stops, seed " << seed
            << ", slowest call of others " << m_slowest.count() << " ms\n";
}

INSTANTIATE_TEST_SUITE_P(Over, Stopped, ::testing::ValuesIn(kWorks),
                         [](const auto& work) { return work.param.name; });

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
