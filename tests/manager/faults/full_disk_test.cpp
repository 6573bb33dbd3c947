#include "tests/manager/faults/model.h"
#include "tests/manager/faults/peer.h"
#include "tests/support/process.h"
#include "tests/support/temp_folder.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <iostream>
#include <sys/mount.h>
#include <thread>

namespace faults {
namespace {

/// A file system of its own, of a few MiB.
class SmallDisk {
public:
  explicit SmallDisk(const std::string& size) {
    m_mounted = ::mount("tmpfs", path().c_str(), "tmpfs", 0, ("size=" + size).c_str()) == 0;
  }
  ~SmallDisk() {
    if (m_mounted) ::umount2(path().c_str(), MNT_DETACH);
  }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;
  bool isMounted() const { return m_mounted; }
  std::string path() const { return m_folder.path().string(); }
  void makeReadOnly() const {
    ASSERT_EQ(::mount("tmpfs", path().c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, ""), 0);
  }

private:
  support::TempFolder m_folder;
  bool m_mounted;
};

#define NEEDS_MOUNT(disk)                                                                          \
  if (!(disk).isMounted()) GTEST_SKIP() << "mounting a file system is not possible here"

void begin(Peer& peer) {
  peer.words("connect");
  peer.words("create Q");
}

void synchroniseFully(const std::string& home) {
  support::Process alter(
      {support::binDir() + "/bxadm", "manager", "alter", "DEFAULT", "--sync", "full"});
  EXPECT_EQ(alter.environment("BXM_HOME", home).run().status, 0);
}

/// Puts units of work until one fails. Returns how many messages were committed.
int fill(Peer& peer) {
  for (int unit = 0;; ++unit) {
    const auto put = peer.ask("sputn Q u" + std::to_string(unit) + "- 5 @40000");
    const auto commit = *put == "0 0" ? peer.ask("commit") : put;
    if (*commit == "0 0") continue;
    EXPECT_EQ(*commit, "2 2056");
    peer.words("backout");
    return unit * 5;
  }
}

TEST(FullDisk, RefusesPutsAndLosesNothing) {
  const SmallDisk disk("20m");
  NEEDS_MOUNT(disk);
  Peer peer(disk.path()), reader(disk.path()), second(disk.path());
  begin(peer);
  for (Peer* each : {&reader, &second}) {
    each->words("connect");
    each->words("browse Q");
  }
  const int count = fill(peer);
  ASSERT_GT(count, 20);
  EXPECT_EQ(peer.words("browse Q").size(), std::size_t(count));
  EXPECT_EQ(reader.words("depth Q").at(0), std::to_string(count));
  { // a newcomer is served or told, and harms nobody
    Peer newcomer(disk.path());
    const auto answer = newcomer.ask("connect");
    EXPECT_TRUE(answer == "0 0" || answer == "2 2056") << *answer;
  }
  // Reading makes room.
  for (int i = 0; i < count; ++i) {
    const auto name = "u" + std::to_string(i / 5) + "-" + std::to_string(i % 5) + "@40000";
    EXPECT_EQ((i % 3 ? reader : second).words("get Q").at(0), name);
  }
  EXPECT_EQ(reader.ask("get Q"), "2 2033");
  reader.words("disconnect");
  second.words("disconnect");
  EXPECT_GT(fill(peer), count / 2);
}

/// There is one file for what they take, which each of them needs at once.
TEST(FullDisk, IsReadByTwoInTurns) {
  const SmallDisk disk("16m");
  NEEDS_MOUNT(disk);
  Peer peer(disk.path()), first(disk.path()), second(disk.path());
  begin(peer);
  synchroniseFully(disk.path());
  for (Peer* each : {&first, &second}) each->words("connect");
  fill(peer);
  for (const std::string unit : {"u0-", "u1-"})
    for (int i = 0; i < 5; ++i)
      EXPECT_EQ((i % 2 ? first : second).ask("get Q"),
                "0 0 " + unit + std::to_string(i) + "@40000");
}

/// Small messages need the most beside themselves: for who takes them, and for their deletion.
TEST(FullDisk, LetsEverySmallMessageBeRead) {
  const SmallDisk disk("16m");
  NEEDS_MOUNT(disk);
  const auto ferry = [&](const std::string& what, int lines = 0) {
    support::Process program({support::binDir() + "/ferry", what, "Q", "-T"});
    std::string input;
    for (int i = 0; i < lines; ++i) input += "small\n";
    return program.environment("BXM_HOME", disk.path()).input(input).run();
  };
  ASSERT_EQ(ferry("-C").status, 0);
  for (const int lines : {400'000, 100, 10, 1})
    while (ferry("-f", lines).status == 0) {
    }
  Peer peer(disk.path());
  peer.words("connect");
  const std::string stored = peer.words("depth Q").at(0);
  ASSERT_GT(std::stoi(stored), 70'000);
  EXPECT_EQ(ferry("-r").err, "(" + stored + ") Records Received.\n");
  EXPECT_EQ(ferry("-f", 1).status, 0);
}

TEST(FullDisk, RefusesAUnitOfWorkThatIsLargerThanMemoryAndDisk) {
  const SmallDisk disk("16m");
  NEEDS_MOUNT(disk);
  Peer peer(disk.path());
  begin(peer);
  for (const std::string count :
       {"1200", "600"}) { // the first needs too much of both before its end
    const auto put = peer.ask("sputn Q big " + count + " @40000");
    EXPECT_EQ(*put == "0 0" ? peer.ask("commit") : put, "2 2056") << count;
    peer.words("backout");
    EXPECT_EQ(peer.words("depth Q").at(0), "0");
    EXPECT_TRUE(support::eventually([&] { return peer.ask("put Q after") == "0 0"; }))
        << "its space is not given back";
    EXPECT_EQ(peer.words("get Q").at(0), "after");
  }
}

/// It can be tried as often as one likes: where there is room again, it needs no more than before.
TEST(FullDisk, IsForgottenByAUnitOfWorkThatFailed) {
  const SmallDisk disk("16m");
  NEEDS_MOUNT(disk);
  Peer peer(disk.path());
  begin(peer);
  peer.words("put Q first");
  support::writeFile(disk.path() + "/filler", std::string(16 << 20, 'x'));
  for (int i = 0; i < 20; ++i) {
    peer.words("sputn Q m 5000");
    EXPECT_EQ(peer.ask("commit"), "2 2056");
  }
  const std::string filler = disk.path() + "/filler";
  std::filesystem::resize_file(filler, std::filesystem::file_size(filler) - (256 << 10));
  peer.words("sputn Q m 5000");
  EXPECT_EQ(peer.ask("commit"), "0 0");
}

TEST(FullDisk, LeavesAManagerWhoseQueueIsHalfDeletedInReach) {
  const SmallDisk disk("16m");
  NEEDS_MOUNT(disk);
  {
    Peer victim(disk.path(), {{"BXM_KILL_AT", "delete-decided"}});
    begin(victim);
    victim.words("create R");
    victim.words("put R precious");
    fill(victim);
    victim.ask("delete Q 1");
  }
  support::writeFile(disk.path() + "/filler", std::string(16 << 20, 'x'));
  Peer next(disk.path());
  EXPECT_EQ(next.ask("connect"), "0 0");
  EXPECT_EQ(next.ask("get R"), "0 0 precious");
}

TEST(FileSizeLimit, IsAnErrorWithAClearLine) {
  support::TempFolder home;
  Peer peer(home.path().string());
  begin(peer);
  peer.words("put Q a");
  for (const std::string limit : {"1", "4"}) {
    support::Process program(
        {"/bin/bash", "-c", "ulimit -f " + limit + "; exec \"$BXADM\" queue create R"});
    program.environment("BXADM", support::binDir() + "/bxadm");
    const auto result = program.environment("BXM_HOME", home.path().string()).run();
    EXPECT_EQ(result.status, 1) << limit;
    EXPECT_TRUE(result.err.starts_with("bxadm: cannot write ") &&
                result.err.ends_with(": File too large\n"))
        << result.err;
  }
  peer.words("create R");
  EXPECT_EQ(peer.words("get Q").at(0), "a");
}

TEST(ReadOnlyFolder, IsRefusedWithAClearLine) {
  const SmallDisk disk("16m");
  NEEDS_MOUNT(disk);
  {
    Peer peer(disk.path());
    begin(peer);
    peer.words("disconnect");
  }
  disk.makeReadOnly();
  Peer peer(disk.path());
  EXPECT_EQ(peer.ask("connect"), "2 2035");
  support::Process program({support::binDir() + "/bxadm", "queue", "create", "R"});
  const auto result = program.environment("BXM_HOME", disk.path()).run();
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("Read-only file system"), std::string::npos) << result.err;
}

// ---- One call that fails ------------------------------------------------------------------------

/// The storage calls of a program fail one after the other. What was refused has not happened, what
/// was accepted has, and the process can go on.
void failEveryCall(const std::string& error) {
  const std::vector<std::string> script{
      "create Q", "sputn Q a 3 @5000", "commit", "sget Q", "sput Q b",
      "commit",   "put Q c",           "sget Q", "commit", "create R"};
  bool reached = true;
  int reconnected = 0;
  for (int n = 8, missed = 0; missed < 5;
       ++n, missed = reached ? 0 : missed + 1) { // not told of all
    const std::string at = std::to_string(n) + ":" + error;
    SCOPED_TRACE(at);
    support::TempFolder home;
    { // the first calls make the manager
      Peer founder(home.path().string());
      founder.words("connect");
    }
    Peer peer(home.path().string(), {{"LD_PRELOAD", preloadLibrary()},
                                     {"FAULTS_FAIL", std::to_string(n - 7) + ":" + error}});
    Model model;
    reached = false;
    Queues before;
    ASSERT_EQ(peer.ask("connect"), "0 0");
    for (const std::string& words : script) {
      before = model.committed();
      const std::string expected = model.first("Q");
      const auto answer = peer.ask(words);
      ASSERT_TRUE(answer) << "died over " << words;
      reached = !answer->starts_with("0 0");
      if (reached) break;
      model.apply(words, expected);
    }
    if (reached) peer.ask("backout");
    if (before.contains("Q")) {
      Peer other(home.path().string());
      other.words("connect");
      const auto there = reached ? before["Q"] : model.committed().at("Q");
      EXPECT_EQ(other.words("browse Q"), there);
      EXPECT_EQ(other.words("depth Q").at(0), std::to_string(there.size()));
      if (reached && peer.ask("put Q on") != "0 0") {
        peer.ask("disconnect");
        EXPECT_EQ(peer.ask("connect"), "0 0");
        EXPECT_EQ(peer.ask("put Q on"), "0 0");
        ++reconnected;
      }
    }
  }
  std::cout << reconnected << " times the process had to connect again\n";
}

TEST(FailingDisk, FullAtAnyWriteLeavesNothingHalfDone) { failEveryCall("28"); }
TEST(FailingDisk, BrokenAtAnyWriteLeavesNothingHalfDone) { failEveryCall("5"); }

#ifdef FERRY_KILL_POINTS
/// A call is stopped, something happens to what it is about, and it goes on.
TEST(Meanwhile, WhatACallIsAboutMayChange) {
  struct Case {
    const char *call, *at, *meanwhile, *answer;
  };
  for (const Case& each : {Case{"put Q x", "commit-begin", "delete Q 1", "2 2052"},
                           {"put Q x", "flush-begin", "", "2 2009"}, // all files are removed
                           {"delete Q", "delete-asked", "put Q x", "2 2055"},
                           {"create R", "queue-claimed:2", "create R", "2 2100"}}) {
    SCOPED_TRACE(each.at);
    support::TempFolder home;
    Peer slow(home.path().string(), {{"BXM_STOP_AT", each.at}});
    begin(slow);
    slow.tell(each.call);
    ASSERT_TRUE(slow.waitForStop());
    if (*each.meanwhile) {
      Peer other(home.path().string());
      for (const char* words : {"connect", each.meanwhile}) other.words(words);
    } else {
      std::filesystem::remove_all(home / "DEFAULT");
    }
    slow.signal(SIGCONT);
    EXPECT_EQ(slow.answer(), each.answer);
  }
}
#endif

/// From some call on the disk is broken for good.
TEST(FailingDisk, MakesACallUnknownOnlyWhereItsRecordCannotBeVoided) {
  const auto outcome = [](const std::vector<std::string>& script, int n) {
    support::TempFolder home;
    Peer founder(home.path().string());
    for (const char* words : {"connect", "create Q", "put Q a", "put Q b"}) founder.words(words);
    synchroniseFully(home.path().string());
    Peer peer(home.path().string(),
              {{"LD_PRELOAD", preloadLibrary()}, {"FAULTS_FAIL", std::to_string(n) + "+:5"}});
    peer.words("connect");
    std::string last;
    for (const std::string& words : script) last = *peer.ask(words);
    if (last.starts_with("0 0")) return last;
    EXPECT_TRUE(last == "2 2124" || last == "2 2195" || last == "2 2059") << n << ": " << last;
    EXPECT_EQ(peer.ask("sget Q"), "0 0 a") << n;
    EXPECT_NE(peer.ask("commit"), "0 0") << n;
    EXPECT_EQ(founder.words("browse Q"), (std::vector<std::string>{"a", "b"})) << n;
    return last;
  };
  for (const std::vector<std::string>& script :
       {std::vector<std::string>{"get Q"}, {"sput Q c", "sget Q", "commit"}}) {
    int unknown = 0;
    std::string last;
    for (int n = 1; !last.starts_with("0 0"); ++n) {
      last = outcome(script, n);
      unknown += last == "2 2124";
    }
    EXPECT_GT(unknown, 0) << script[0];
  }
}

/// What is got and not logged yet has a bound, which a disk that is broken shows.
TEST(FailingDisk, LetsNoMoreBeGotThanAPowerCutMayBringBack) {
  support::TempFolder home;
  Peer founder(home.path().string());
  for (const char* words : {"connect", "create Q", "sputn Q m 4000", "commit"})
    founder.words(words);
  const Environment broken{{"LD_PRELOAD", preloadLibrary()}, {"FAULTS_FAIL", "1+:5"}};
  Peer each(home.path().string(), broken), units(home.path().string(), broken);
  for (Peer* peer : {&each, &units}) peer->words("connect");
  int got = 0;
  while (each.ask("get Q")->starts_with("0 0")) ++got;
  EXPECT_EQ(got, 1000);
  units.words("sgetn Q 1001");
  EXPECT_NE(units.ask("commit"), "0 0");
  for (const char* words : {"sgetn Q 600", "commit", "sgetn Q 401"}) units.words(words);
  EXPECT_NE(units.ask("commit"), "0 0") << "1,001 in two units of work";
  EXPECT_EQ(founder.words("depth Q").at(0), "2400");
}

} // namespace
} // namespace faults
