#include "tests/manager/faults/model.h"
#include "tests/manager/faults/peer.h"
#include "tests/support/process.h"
#include "tests/support/temp_folder.h"

#include <climits>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>

namespace faults {
namespace {

using std::chrono::milliseconds;

/// One of everything, on queues that the first words create.
const std::vector<std::string> kScript{
    "connect",      "create Q", "create R",       "sputn Q a 4 @3000",
    "sput R x",     "commit",   "put Q urgent 5", "sget Q",
    "sget Q",       "commit",   "sget Q",         "sget Q",
    "sget R",       "backout",  "get Q",          "sget Q",
    "sput R moved", "sget R",   "commit",         "sput Q never",
    "backout",      "put Q b",  "sput Q c 3",     "sget Q",
    "disconnect",   "connect",  "sputn R d 3",    "commit",
    "sget R",       "sget R",   "delete R 1",     "create R",
    "put R again",  "backout",  "get R",          "put R last",
    "create T",     "delete T", "change Q 99999", "sget Q",
    "disconnect"};

/// Fills files of the log and empties them, but for a few old messages; of these one stays where it
/// is while the others are moved and got. What says that messages were got lies in a file that is
/// emptied before theirs.
std::vector<std::string> spaceScript() {
  std::vector<std::string> script{"connect", "create Q", "create R"};
  const auto fill = [&script](const std::string& unit) {
    script.push_back("sputn R old" + unit + " 2");
    script.push_back("sputn Q big" + unit + " 13 @300000");
    script.emplace_back("commit");
  };
  for (const char* unit : {"0-", "1-", "2-", "3-"}) fill(unit);
  script.insert(script.end(), 20, "get Q");
  script.emplace_back("wait");
  fill("4-");
  script.emplace_back("sget R");
  script.insert(script.end(), 44, "get Q");
  script.insert(script.end(), 3, "wait"); // moves have their pauses; a deletion has all looked over
  for (const char* words : {"create T", "delete T", "get Q"}) script.emplace_back(words);
  for (const char* words :
       {"wait", "get R", "get R", "put R new", "commit", "wait", "get R", "disconnect"})
    script.emplace_back(words);
  return script;
}

/// The status of an operator's command.
int bxadm(const std::string& home, std::vector<std::string> words) {
  words.insert(words.begin(), support::binDir() + "/bxadm");
  return support::Process(std::move(words)).environment("BXM_HOME", home).run().status;
}
void synchroniseFully(const std::string& home) {
  EXPECT_EQ(bxadm(home, {"manager", "alter", "DEFAULT", "--sync", "full"}), 0);
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
  bool run(const Environment& environment, const std::vector<std::string>& script = kScript) {
    Peer victim(m_home.path().string(), environment);
    for (const std::string& words : script) {
      if (words == "wait") { // until what was got is settled, and space given back
        std::this_thread::sleep_for(milliseconds(300));
        continue;
      }
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
    {
      Peer next(m_home.path().string());
      EXPECT_LT(timed([&] { next.words("connect"); }), milliseconds(1000));
      expectDecided(next, "the next process");
      if (m_neighbour) expectDecided(*m_neighbour, "the neighbour again");
    }
    m_neighbour.reset();
    std::filesystem::remove(m_home / "DEFAULT/runtime");
    Peer booted(m_home.path().string());
    booted.words("connect");
    expectDecided(booted, "the next after a boot");
    drain(booted);
  }

private:
  void expectDecided(Peer& peer, const std::string& who) {
    Queues seen;
    const auto time = timed([&] { seen = lookedAt(peer); });
    if (time >= milliseconds(1000)) { // what a busy machine needs for it without having to wait
      EXPECT_LT(time, milliseconds(1000) + 2 * timed([&] { lookedAt(peer); })) << who;
    }
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
    "connection-claimed", "access-claimed", "put-reserved",       "commit-begin",
    "commit-before",      "append-begin",   "append-header",      "append-end",
    "flush-begin",        "flush-end",      "commit-after",       "enter-attempt",
    "publish-entered",    "commit-entry",   "commit-taken",       "commit-end",
    "take-claimed",       "take-consumed",  "commit-takes-begin", "commit-takes-decided",
    "consume-entry",      "backout-begin",  "release-entry",      "commit-takes-consumed",
    "release-lowered",    "backout-end",    "settle-begin",       "settle-written",
    "settle-entry",       "queue-claimed",  "queue-written",      "queue-prepared",
    "queue-live",         "delete-asked",   "delete-begin",       "delete-decided",
    "delete-synced",      "queue-altered",  "file-closed"};
constexpr const char* kSpacePoints[] = {"file-made",     "file-sealed",  "clean-begin",
                                        "clean-carried", "free-written", "free-synced",
                                        "free-removed",  "move-written", "move-entry"};

/// Runs a script once for each time that a point is reached, or for some. Where a busy machine does
/// not come to the first within the script's waits, it has two more tries.
void dieAtEveryPassOf(const std::string& point, bool syncFull,
                      const std::vector<std::string>& script = kScript, int most = INT_MAX) {
  int deaths = 0, missed = 0;
  while (deaths < most && missed <= (deaths == 0 ? 2 : 0) && !::testing::Test::HasFailure()) {
    const std::string at = point + ":" + std::to_string(deaths + 1);
    SCOPED_TRACE(at);
    Death death(deaths % 2 == 0, syncFull);
    ++(death.run({{"BXM_KILL_AT", at}}, script) ? deaths : missed);
    death.check();
  }
  EXPECT_TRUE(deaths > 0 || ::testing::Test::HasFailure()) << point << " was never reached";
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
#if defined(__SANITIZE_ADDRESS__)
  constexpr int kMost = 2; // each death is several slow processes; memory is the same in all
#else
  constexpr int kMost = 10;
#endif
  for (const char* point : kPoints) dieAtEveryPassOf(point, false, kScript, kMost);
}

TEST(ProcessDeath, AtEveryCallThatWritesToTheDiskLeavesAllOrNothing) {
  for (const char* how : {"after", "half"}) dieAtEveryStorageCall(how, false);
}

TEST(ProcessDeath, WithFullSynchronisationLeavesAllOrNothing) {
  for (const char* point : {"append-end", "flush-end", "commit-taken"})
    dieAtEveryPassOf(point, true);
  dieAtEveryStorageCall("half", true);
}

TEST(ProcessDeath, OverSpaceThatIsGivenBackLosesNothingAndBringsNothingBack) {
  for (const char* point : kSpacePoints) dieAtEveryPassOf(point, false, spaceScript(), 2);
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
    tell({"connect", "create Q", "create R", "sputn Q a 5", "sputn R b 2", "commit", "disconnect"});
  }
  /// A program does what it is told and dies, unless it ends with a disconnect.
  void tell(const std::vector<std::string>& script) const {
    Peer peer(home());
    for (const std::string& words : script) peer.words(words);
  }
  Queues look(bool boot = false) const {
    if (boot) std::filesystem::remove(m_home / "DEFAULT/runtime");
    Peer next(home());
    next.words("connect");
    return lookedAt(next);
  }
  /// What backup B holds.
  Queues restored() const {
    const support::TempFolder other;
    EXPECT_EQ(bxadm(other.path().string(), {"restore", m_apart / "B", "DEFAULT"}), 0);
    support::writeFile(other / "default", "DEFAULT\n");
    Peer peer(other.path().string());
    peer.words("connect");
    return lookedAt(peer);
  }
  std::string home() const { return m_home.path().string(); }
  support::TempFolder m_home, m_apart;
};

const std::vector<std::string> kTakes{"connect", "get Q",  "sget Q", "sget Q",
                                      "sget R",  "commit", "backout"};

/// A deletion has all space looked over.
const std::vector<std::string> kLookedOver{"connect", "create T", "delete T", "disconnect"};

constexpr const char* kOnBrokenDisk = "broken"; ///< a recovery fails, and is tried again

struct Chain {
  const char* name;
  std::vector<std::string> words;
  const char* point;                   ///< where the process dies
  std::vector<const char*> recoveries; ///< where those die who recover for it, one after the other
  Queues left;
};

class RecoveryOf : public Recovery, public ::testing::WithParamInterface<Chain> {};

TEST_P(RecoveryOf, MayDieAnywhere) {
  dieOver(home(), GetParam().words, GetParam().point);
  for (const char* point : GetParam().recoveries)
    if (point != kOnBrokenDisk)
      dieOver(home(), {"connect"}, point);
    else
      Peer(home(), {{"LD_PRELOAD", preloadLibrary()}, {"FAULTS_FAIL", "1+:5"}}).words("connect");
  // What is written and not yet said to be must not be written over.
  tell({"connect", "put R later", "disconnect"});
  Queues expected = GetParam().left;
  expected["R"].emplace_back("later");
  EXPECT_EQ(look(), expected);
  EXPECT_EQ(look(true), expected) << "after a boot";
}

INSTANTIATE_TEST_SUITE_P(
    , RecoveryOf,
    ::testing::Values(Chain{"Backout",
                            kTakes,
                            "commit-takes-begin",
                            {"recover-entry", "recover-freed", "recover-settled", "recover-freed"},
                            {{"Q", {"a1", "a2", "a3", "a4"}}, {"R", {"b0", "b1"}}}},
                      Chain{"DecidedCommit",
                            kTakes,
                            "commit-takes-decided",
                            {"recover-decided", kOnBrokenDisk, "recover-settled"},
                            {{"Q", {"a3", "a4"}}, {"R", {"b1"}}}},
                      Chain{
                          "CommitWithPuts",
                          {"connect", "sget Q", "sput R moved 0", "commit"},
                          "append-header",
                          {kOnBrokenDisk, "recover-published", "recover-decided", "recover-freed"},
                          {{"Q", {"a1", "a2", "a3", "a4"}}, {"R", {"b0", "b1", "moved"}}}}),
    [](const auto& chain) { return std::string(chain.param.name); });

TEST_F(Recovery, OfADeletionTellsThoseWhoHaveTheQueueOpen) {
  for (const std::string point : {"delete-decided", "delete-synced"}) {
    Peer neighbour(home()), next(home());
    for (const char* words : {"connect", "browse Q", "get Q"}) neighbour.words(words);
    dieOver(home(), {"connect", "sputn Q more 1500", "commit", "delete Q 1"}, point);
    EXPECT_EQ(neighbour.ask("get Q"), "2 2052") << point;
    EXPECT_EQ(look(), (Queues{{"R", {"b0", "b1"}}})) << point;
    for (const char* words : {"connect", "create Q"}) next.words(words);
    EXPECT_EQ(next.ask("get Q"), "2 2033") << point;
    next.words("put Q new");
  }
}

/// Between its pieces another one, with a later commit, lets go of a file that has room for more.
TEST_F(Recovery, AfterABootKeepsTheOrderWithinALargeUnitOfWork) {
  Peer slow(home(), {{"BXM_STOP_AT", "append-end"}}), other(home());
  for (const char* words : {"connect", "sputn Q big 150 @300000"}) slow.words(words);
  for (const char* words : {"connect", "put R first"}) other.words(words);
  slow.tell("commit");
  ASSERT_TRUE(slow.waitForStop());
  for (const char* words : {"put R later", "disconnect"}) other.words(words);
  slow.signal(SIGCONT);
  EXPECT_EQ(slow.answer(), "0 0");
  const Queues before = look();
  EXPECT_EQ(look(true), before);
}

/// Nor of its pieces, once there are others in their place: two are in one file, one in another.
TEST_F(Recovery, AfterABootFindsNothingOfHalfAUnitOfWork) {
  Queues expected = look();
  dieOver(home(), {"connect", "sget Q", "sputn Q big 36 @1000000", "commit"}, "append-end:3");
  EXPECT_EQ(look(true), expected);
  {
    Peer one(home()), other(home());
    for (const char* words : {"connect", "put R c"}) one.words(words);
    for (const char* words : {"connect", "put R d"}) other.words(words);
  }
  expected["R"].insert(expected["R"].end(), {"c", "d"});
  EXPECT_EQ(look(true), expected);
  EXPECT_EQ(bxadm(home(), {"check"}), 0);
}

/// Nor does who has read ahead take it for what is put later.
TEST_F(Recovery, WritesNothingOverHalfAUnitOfWork) {
  Peer victim(home(), {{"BXM_STOP_AT", "append-end:2"}}), reader(home());
  for (const char* words : {"connect", "sputn Q never 9", "sputn Q big 36 @1000000"})
    victim.words(words);
  victim.tell("commit");
  ASSERT_TRUE(victim.waitForStop());
  for (const char* words : {"connect", "browse Q"}) reader.words(words);
  victim.signal(SIGKILL);
  victim.waitForDeath();
  tell({"connect", "sputn Q fresh 2", "commit", "disconnect"});
  EXPECT_EQ(reader.ask("browse Q"), "0 0 a0 a1 a2 a3 a4 fresh0 fresh1");
}

/// What the seal of one file covers counts when the other has been freed.
TEST_F(Recovery, AfterABootFindsWhatAUnitTookWhoseEndIsGivenBack) {
  tell({"connect", "sputn Q full 8 @418000", "commit", "sget R", "sputn Q big 8 @418000", "commit",
        "sgetn Q 21", "commit", "disconnect"});
  tell(kLookedOver);
  EXPECT_EQ(look(true), (Queues{{"Q", {}}, {"R", {"b1"}}}));
}

class RecoveryOfMove : public Recovery, public ::testing::WithParamInterface<bool> {};

/// Also once what it was made of, and what says that this was got, have been freed.
TEST_P(RecoveryOfMove, BringsNoCopyBackThatWasNotEntered) {
  for (const std::string unit : {"0", "1"})
    tell(
        {"connect", "sputn R old" + unit + " 2", "sputn Q big 10 @418000", "commit", "disconnect"});
  Peer mover(home(), {{"BXM_STOP_AT", "move-written"}}), other(home());
  for (const char* words : {"connect", "sgetn Q 25"}) mover.words(words);
  mover.tell("commit\ndisconnect"); // which does it in the thread that is stopped
  ASSERT_TRUE(mover.waitForStop());
  for (const char* words : {"connect", "get R"}) other.words(words);
  std::this_thread::sleep_for(milliseconds(300)); // until it is settled
  for (const char* words : {"sputn Q more 10 @418000", "commit"}) other.words(words); // behind it
  mover.signal(GetParam() ? SIGKILL : SIGCONT);
  for (int i = 0; i < 2; ++i) mover.answer();
  tell({"connect", "disconnect"});
  for (const char* words : {"get R", "get R", "get R", "sgetn Q 10", "commit", "disconnect"})
    other.words(words);
  tell(kLookedOver);
  EXPECT_EQ(look(true), (Queues{{"Q", {}}, {"R", {"old10", "old11"}}}));
}

INSTANTIATE_TEST_SUITE_P(, RecoveryOfMove, ::testing::Bool(),
                         [](const auto& dies) { return dies.param ? "Death" : "Pause"; });

/// Else that would be there again.
TEST_F(Recovery, OfSpaceKeepsACopyAsLongAsWhatItWasMadeOf) {
  Peer peer(home()), holder(home());
  peer.words("connect");
  for (const std::string unit : {"0", "1", "2", "3"})
    for (const std::string& words :
         {"sputn R old" + unit + " 2 @99", {"sputn Q big 13 @300000"}, std::string("commit")})
      peer.words(words);
  for (const char* words : {"get R", "get R"}) peer.words(words);
  for (const char* words : {"connect", "sget R"}) holder.words(words);
  for (int i = 0; i < 57; ++i) peer.words("get Q");
  const auto isMoved = [this] {
    int logs = 0;
    for (const auto& entry : std::filesystem::directory_iterator(m_home / "DEFAULT"))
      logs += entry.path().filename().string().starts_with("log-") &&
              support::readFile(entry.path()).find("old01@99|") != std::string::npos;
    return logs > 1;
  };
  ASSERT_TRUE(support::eventually([&] { // moves have their pauses; a deletion has all looked over
    for (const char* words : {"create T", "delete T", "put Q x", "get Q"}) peer.words(words);
    return isMoved();
  }));
  for (const char* words : {"sputn Q more 10 @418000", "commit"}) peer.words(words);
  for (int i = 0; i < 10; ++i) peer.words("get Q");
  for (int i = 0; i < 7; ++i) peer.words("get R");
  peer.words("disconnect");
  tell(kLookedOver);
  for (const char* words : {"backout", "disconnect"}) holder.words(words);
  EXPECT_EQ(look(true), (Queues{{"Q", {}}, {"R", {"old00@99"}}}));
}

/// Else the space of messages that are there would be given back.
TEST_F(Recovery, CountsWhatWasSettledOnlyOnce) {
  tell({"connect", "sputn R full 10 @418000", "commit", "disconnect"}); // the file is full
  {
    Peer reader(home());
    reader.words("connect");
    for (const char* words : {"get Q", "get Q", "get Q", "get Q", "get Q", "get R", "get R"})
      reader.words(words);
    std::this_thread::sleep_for(milliseconds(300));
  }
  tell({"connect", "get R", "get R", "get R", "disconnect"}); // with what is counted twice, all
  Queues expected{{"Q", {}}, {"R", {}}};
  for (int i = 3; i < 10; ++i) expected["R"].push_back("full" + std::to_string(i) + "@418000");
  EXPECT_EQ(look(), expected);
  EXPECT_EQ(look(true), expected);
}

/// A file that is used again before it is copied no longer holds what the others' copies refer to.
TEST_F(Recovery, BackupBesidesSpaceThatIsGivenBackIsWhole) {
  const auto generation = [this] {
    return support::readFile(m_home / "DEFAULT/log-1").substr(24, 8);
  };
  tell({"connect", "sputn R full 10 @418000", "commit", "disconnect"});
  Peer mover(home()), filler(home());
  for (const char* words : {"connect", "get Q"}) mover.words(words);
  support::Process backup({support::binDir() + "/bxadm", "backup", m_apart / "B"});
  backup.environment("BXM_HOME", home()).environment("BXM_STOP_AT", "backup-copied").start();
  ASSERT_TRUE(backup.waitForStop());
  for (int i = 0; i < 4; ++i) mover.words("get Q");
  for (int i = 0; i < 11; ++i) mover.words("get R");
  const std::string before = generation();
  for (const char* words : {"sget R", "sput R moved", "commit"}) mover.words(words);
  ASSERT_TRUE(support::eventually([&] { return generation() != before; }));
  for (const char* words : {"connect", "sputn Q new 10 @418000", "commit"}) filler.words(words);
  backup.signal(SIGCONT);
  EXPECT_EQ(backup.wait().status, 0);
  EXPECT_EQ(restored(), look());
}

TEST_F(Recovery, AfterABootMayDieAnywhere) {
  synchroniseFully(home());
  dieOver(home(), kTakes, "backout-begin");
  for (const char* point : {"rebuild-entered", "runtime-before-seal"}) {
    std::filesystem::remove(m_home / "DEFAULT/runtime");
    dieOver(home(), {"connect"}, point);
  }
  EXPECT_EQ(look(), (Queues{{"Q", {"a3", "a4"}}, {"R", {"b1"}}}));
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

TEST_F(Recovery, BackupBesidesReadersThatAreStoppedBringsNothingBack) {
  Peer one(home(), {{"BXM_STOP_AT", "settle-begin"}}),
      unit(home(), {{"BXM_STOP_AT", "consume-entry"}});
  for (Peer* each : {&one, &unit}) each->words("connect");
  one.tell("get Q");
  ASSERT_TRUE(one.waitForStop());
  unit.words("sgetn Q 2");
  unit.tell("commit");
  ASSERT_TRUE(unit.waitForStop());
  EXPECT_EQ(bxadm(home(), {"backup", m_apart / "B"}), 0);
  EXPECT_EQ(restored(), (Queues{{"Q", {"a3", "a4"}}, {"R", {"b0", "b1"}}}));
}

/// The unit's last piece lies in a file that is looked at later than that of its first.
TEST_F(Recovery, BackupBesidesAUnitOfWorkInSeveralFilesHoldsNoPartOfIt) {
  Peer writer(home());
  for (const char* words : {"connect", "sputn R full 5 @418000", "commit"}) writer.words(words);
  tell({"connect", "put R other", "disconnect"});
  const Queues before = look();
  support::Process backup({support::binDir() + "/bxadm", "backup", m_apart / "B"});
  backup.environment("BXM_HOME", home()).environment("BXM_STOP_AT", "backup-looked").start();
  ASSERT_TRUE(backup.waitForStop());
  for (const char* words : {"sputn R half 8 @418000", "commit"}) writer.words(words);
  backup.signal(SIGCONT);
  EXPECT_EQ(backup.wait().status, 0);
  EXPECT_EQ(restored(), before);
}

} // namespace
} // namespace faults
