#include "tests/manager/faults/model.h"
#include "tests/manager/faults/peer.h"
#include "tests/support/process.h"
#include "tests/support/temp_folder.h"

#include <gtest/gtest.h>

namespace faults {
namespace {

using std::chrono::milliseconds;

/// One of everything, on queues that the first words create.
const std::vector<std::string> kScript{
    "connect",      "create Q",  "create R",       "sputn Q a 4 @3000",
    "sput R x",     "commit",    "put Q urgent 5", "sget Q",
    "sget Q",       "commit",    "sget Q",         "sget Q",
    "sget R",       "backout",   "get Q",          "sget Q",
    "sput R moved", "sget R",    "commit",         "sput Q never",
    "backout",      "put Q b",   "sput Q c 3",     "sget Q",
    "disconnect",   "connect",   "sputn R d 3",    "commit",
    "sget R",       "sget R",    "delete R 1",     "create R",
    "put R again",  "backout",   "get R",          "put R last",
    "sget Q",       "disconnect"};

void synchroniseFully(const std::string& home) {
  using support::Process;
  Process program({support::binDir() + "/bxadm", "manager", "alter", "DEFAULT", "--sync", "full"});
  EXPECT_EQ(program.environment("BXM_HOME", home).run().status, 0);
}

struct Look {
  Queues queues;
  bool depthsAgree = true;
};

Look lookOnce(Peer& peer) {
  Look look;
  for (const std::string queue : {"Q", "R"}) {
    const auto names = peer.ask("browse " + queue), depth = peer.ask("depth " + queue);
    if (!names || !depth) throw std::runtime_error("it died over a look at " + queue);
    if (names->starts_with("2 2085")) continue;
    look.queues[queue] = split(names->substr(3));
    const std::string counted = std::to_string(look.queues[queue].size());
    look.depthsAgree = look.depthsAgree && *depth == "0 0 " + counted;
  }
  return look;
}

/// What a process sees. It may see the dead process's last commit appear between two calls.
Queues lookedAt(Peer& peer) {
  const Look first = lookOnce(peer), look = first.depthsAgree ? first : lookOnce(peer);
  EXPECT_TRUE(look.depthsAgree) << "depths are not what a browse counts";
  return look.queues;
}

/// A victim that is told the script until it dies, beside a neighbour that lives on.
class Death {
public:
  Death(bool withNeighbour, bool syncFull) {
    Peer founder(m_home.path().string());
    founder.words("connect");
    founder.words("create OTHER");
    founder.words("disconnect");
    if (syncFull) synchroniseFully(m_home.path().string());
    if (!withNeighbour) return;
    m_neighbour = std::make_unique<Peer>(m_home.path().string());
    m_neighbour->words("connect");
    lookedAt(*m_neighbour);
  }

  /// True when the victim died before the script's end.
  bool run(const Environment& environment) {
    Peer victim(m_home.path().string(), environment);
    for (const std::string& words : kScript) {
      m_before = m_model.committed();
      const std::string expected = m_model.first(words.substr(words.size() - 1));
      const auto answer = victim.ask(words);
      m_model.apply(words, words.find("get") != std::string::npos ? expected : "");
      m_last = words;
      if (!answer) return victim.waitForDeath();
      EXPECT_TRUE(answer->starts_with("0 0")) << words << ": " << *answer;
      if (words.starts_with("get") || words.starts_with("sget")) {
        EXPECT_EQ(answer->substr(4), expected) << words;
      }
    }
    return false;
  }

  void check() {
    if (m_neighbour) expectDecided(*m_neighbour, "the neighbour");
    Peer next(m_home.path().string());
    EXPECT_LT(timed([&] { next.words("connect"); }), milliseconds(1000));
    expectDecided(next, "the next process");
    if (m_neighbour) expectDecided(*m_neighbour, "the neighbour again");
    drain(next);
  }

private:
  void expectDecided(Peer& peer, const std::string& who) {
    Queues seen;
    EXPECT_LT(timed([&] { seen = lookedAt(peer); }), milliseconds(1000)) << who;
    if (seen != m_before && seen != m_model.committed())
      ADD_FAILURE() << who << " sees another state after '" << m_last
                    << "':" << ::testing::PrintToString(seen) << "\nbefore "
                    << ::testing::PrintToString(m_before) << "\nafter  "
                    << ::testing::PrintToString(m_model.committed());
  }

  /// What a browse shows can be got, in that order, and then there is nothing more.
  void drain(Peer& peer) {
    for (const auto& [queue, names] : lookedAt(peer)) {
      for (const std::string& name : names) EXPECT_EQ(peer.words("get " + queue).at(0), name);
      EXPECT_EQ(peer.ask("get " + queue), "2 2033");
      EXPECT_EQ(peer.words("depth " + queue).at(0), "0");
    }
  }

  support::TempFolder m_home;
  std::unique_ptr<Peer> m_neighbour;
  Model m_model;
  Queues m_before;
  std::string m_last;
};

constexpr const char* kPoints[] = {
    "connection-claimed",   "access-claimed",        "put-reserved",         "commit-begin",
    "commit-before",        "commit-after",          "commit-entry",         "commit-end",
    "take-claimed",         "take-consumed",         "commit-takes-begin",   "commit-takes-decided",
    "consume-entry",        "commit-takes-consumed", "backout-begin",        "release-entry",
    "release-lowered",      "backout-end",           "settle-begin",         "settle-before-commit",
    "settle-after-commit",  "settle-entry",          "create-before-commit", "create-after-commit",
    "delete-before-commit", "delete-after-commit"};

/// Runs the script once for each time that a point is reached.
void dieAtEveryPassOf(const std::string& point, bool syncFull) {
  bool died = true;
  for (int n = 1; died && !::testing::Test::HasFailure(); ++n) {
    const std::string at = point + ":" + std::to_string(n);
    SCOPED_TRACE(at);
    Death death(n % 2 == 1, syncFull);
    died = death.run({{"BXM_KILL_AT", at}});
    death.check();
    ASSERT_TRUE(died || n > 1) << "never reached";
  }
}

void dieAtEveryStorageCall(const std::string& how, bool syncFull) {
  bool died = true;
  for (int n = 1; died && !::testing::Test::HasFailure(); ++n) {
    const std::string at = std::to_string(n) + ":" + how;
    SCOPED_TRACE(at);
    Death death(n % 2 == 1, syncFull);
    died = death.run({{"LD_PRELOAD", preloadLibrary()}, {"FAULTS_DIE", at}});
    death.check();
  }
}

TEST(ProcessDeath, AtEveryStepLeavesAllOrNothingOfTheCallItInterrupts) {
  for (const char* point : kPoints) dieAtEveryPassOf(point, false);
}

TEST(ProcessDeath, AtEveryCallThatWritesToTheDiskLeavesAllOrNothing) {
  for (const char* how : {"after", "half"}) dieAtEveryStorageCall(how, false);
}

TEST(ProcessDeath, WithFullSynchronisationLeavesAllOrNothing) {
  for (const char* point : {"journal-written", "journal-synced", "commit-takes-consumed"})
    dieAtEveryPassOf(point, true);
  dieAtEveryStorageCall("half", true);
}

// ---- Recovery that dies itself ------------------------------------------------------------------

/// Kills a process over words; a Peer with a kill point that is not reached would answer.
void dieOver(const std::string& home, const std::vector<std::string>& words,
             const std::string& point) {
  Peer victim(home, {{"BXM_KILL_AT", point}});
  std::optional<std::string> answer = "";
  for (std::size_t i = 0; i < words.size() && answer; ++i) answer = victim.ask(words[i]);
  EXPECT_FALSE(answer) << point << " was not reached";
}

class Recovery : public ::testing::Test {
protected:
  Recovery() {
    Peer founder(m_home.path().string());
    for (const char* words :
         {"connect", "create Q", "create R", "sputn Q a 5", "sputn R b 2", "commit", "disconnect"})
      founder.words(words);
  }
  Queues look() {
    Peer next(m_home.path().string());
    next.words("connect");
    return lookedAt(next);
  }
  support::TempFolder m_home;
};

const std::vector<std::string> kTakes{"connect", "get Q",  "sget Q", "sget Q",
                                      "sget R",  "commit", "backout"};

TEST_F(Recovery, OfABackoutMayDieAnywhere) {
  dieOver(m_home.path().string(), kTakes, "commit-takes-begin");
  for (const char* point : {"recover-freed", "recover-settled", "recover-freed"})
    dieOver(m_home.path().string(), {"connect"}, point);
  EXPECT_EQ(look(), (Queues{{"Q", {"a1", "a2", "a3", "a4"}}, {"R", {"b0", "b1"}}}));
}

TEST_F(Recovery, OfADecidedCommitMayDieAnywhere) {
  dieOver(m_home.path().string(), kTakes, "commit-takes-decided");
  for (const char* point : {"recover-decided", "recover-settled:1"})
    dieOver(m_home.path().string(), {"connect"}, point);
  EXPECT_EQ(look(), (Queues{{"Q", {"a3", "a4"}}, {"R", {"b1"}}}));
}

TEST_F(Recovery, OfADeletionTellsThoseWhoHaveTheQueueOpen) {
  Peer neighbour(m_home.path().string());
  neighbour.words("connect");
  neighbour.words("browse Q");
  for (int i = 0; i < 5; ++i) neighbour.words("get Q");
  dieOver(m_home.path().string(), {"connect", "delete Q 1"}, "delete-after-commit");
  EXPECT_EQ(neighbour.ask("get Q"), "2 2052");
  EXPECT_EQ(look(), (Queues{{"R", {"b0", "b1"}}}));
}

TEST_F(Recovery, OfADeletionThatTakesSeveralTransactionsMayDieAnywhere) {
  const std::string home = m_home.path().string();
  for (const std::string point : {"delete-after-commit", "purge-begin", "purge-step"}) {
    Peer neighbour(home), next(home);
    neighbour.words("connect");
    neighbour.words("browse Q");
    dieOver(home, {"connect", "sputn Q more 1500", "commit", "delete Q 1"}, point);
    if (point != "purge-step") dieOver(home, {"connect"}, "purge-begin");
    EXPECT_EQ(look(), (Queues{{"R", {"b0", "b1"}}})) << point;
    EXPECT_EQ(neighbour.ask("get Q"), "2 2052") << point;
    next.words("connect");
    next.words("create Q");
    EXPECT_EQ(next.ask("get Q"), "2 2033") << point;
  }
}

TEST_F(Recovery, AfterABootMayDieAnywhere) {
  synchroniseFully(m_home.path().string());
  dieOver(m_home.path().string(), kTakes, "backout-begin");
  for (const char* point : {"replay-committed", "runtime-before-seal"}) {
    std::filesystem::remove(m_home / "DEFAULT/runtime");
    dieOver(m_home.path().string(), {"connect"}, point);
  }
  EXPECT_EQ(look(), (Queues{{"Q", {"a3", "a4"}}, {"R", {"b1"}}}));
}

TEST_F(Recovery, ServesAWaiterThoughTheCommitterDiedBeforeItSaidSo) {
  Peer waiter(m_home.path().string());
  for (const char* words : {"connect", "get R", "get R"}) waiter.words(words);
  waiter.tell("get R 5000");
  dieOver(m_home.path().string(), {"connect", "put R late"}, "commit-after");
  EXPECT_LT(timed([&] { EXPECT_EQ(waiter.answer(), "0 0 late"); }), milliseconds(1000));
}

TEST(FirstStart, MayDieAnywhere) {
  for (const char* point : {"manager-marked", "manager-made", "runtime-before-seal"}) {
    SCOPED_TRACE(point);
    support::TempFolder home;
    dieOver(home.path().string(), {"connect"}, point);
    Peer next(home.path().string());
    EXPECT_EQ(next.ask("connect"), "0 0");
    EXPECT_EQ(next.ask("create Q"), "0 0");
  }
}

} // namespace
} // namespace faults
