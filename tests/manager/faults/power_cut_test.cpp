#include "tests/manager/faults/disk.h"
#include "tests/manager/faults/peer.h"
#include "tests/manager/faults/promises.h"
#include "tests/support/process.h"
#include "tests/support/temp_folder.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <iostream>
#include <sys/wait.h>

namespace faults {
namespace {

namespace fs = std::filesystem;

class PowerCut : public ::testing::Test {
protected:
  PowerCut() { tell({"connect", "create Q", "disconnect"}); }
  void tell(const std::vector<std::string>& script) const {
    Peer peer(home());
    for (const std::string& words : script) peer.words(words);
  }

  Environment recorded() const {
    return {{"LD_PRELOAD", preloadLibrary()}, {"FAULTS_RECORD", m_folder / "recording"}};
  }
  void presetDisk() {
    for (const auto& [name, bytes] : durableFiles()) m_disk.preset(name, bytes);
  }
  void synchroniseFully(const Environment& environment) const {
    support::Process alter(
        {support::binDir() + "/bxadm", "manager", "alter", "DEFAULT", "--sync", "full"});
    for (const auto& [name, value] : environment) alter.environment(name, value);
    alter.environment("ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=0");
    ASSERT_EQ(alter.environment("BXM_HOME", home()).run().status, 0);
  }

  /// Runs the load under the recorder.
  void record(bool syncFull, const std::string& units = "150") {
    if (syncFull) synchroniseFully({});
    presetDisk();
    std::cout << "seed " << m_seed << " (FAULTS_SEED)\n";
    Environment environment = recorded();
    environment["BXM_HOME"] = home();
    const auto load =
        client({"power", std::to_string(m_seed), units, syncFull ? "20" : "2500"}, environment);
    ASSERT_EQ(load->start().wait(std::chrono::minutes(5)).status, 0);
    m_events = readRecording(m_folder / "recording");
  }

  void lay(const std::map<std::string, std::string>& files) const {
    const fs::path folder = m_folder / "cut/DEFAULT";
    fs::remove_all(folder);
    fs::create_directories(folder);
    support::writeFile(m_folder / "cut/default", "DEFAULT\n");
    for (const auto& [name, bytes] : files) support::writeFile(folder / name, bytes);
  }

  /// Opens what a cut left as a machine that has booted does, twice.
  std::vector<std::string> found(const std::map<std::string, std::string>& files) {
    lay(files);
    auto names = browsed();
    auto rest = names;
    rest.push_back("zother");
    {
      Peer booted(m_folder / "cut");
      booted.words("connect");
      booted.words("put Q zother");
      EXPECT_EQ(booted.words("get Q").at(0), rest.front());
      booted.words("disconnect");
    }
    rest.erase(rest.begin());
    fs::remove(m_folder / "cut/DEFAULT/runtime");
    EXPECT_EQ(browsed(), rest) << "after another boot";
    return names;
  }

  std::vector<std::string> browsed() const {
    Peer peer(m_folder / "cut");
    peer.words("connect");
    auto names = peer.words("browse Q");
    EXPECT_EQ(peer.words("depth Q").at(0), std::to_string(names.size()));
    return names;
  }

  /// Cuts the power in the middle of some calls, flushes more often than writes.
  void cut(bool syncFull, std::size_t wanted) {
    record(syncFull);
    std::mt19937 random(m_seed);
    Promises promises(syncFull);
    std::size_t cuts = 0;
    const auto calls = static_cast<std::size_t>(std::count_if(
        m_events.begin(), m_events.end(), [](const Event& e) { return e.header.type != kMark; }));
    for (const Event& event : m_events) {
      if (event.header.type == kMark) {
        promises.mark(event.data, event.header.micros);
        continue;
      }
      const std::size_t share = wanted * (event.header.type == kWrite ? 1 : 2);
      std::size_t images = share / calls + (random() % calls < share % calls ? 1 : 0);
      for (; images > 0; --images, ++cuts) {
        const auto how = static_cast<Disk::Unflushed>(random() % 4);
        const auto names = found(m_disk.afterCut(how, &event, random));
        EXPECT_EQ(promises.faultOf(names, event.header.micros), "")
            << "cut in event " << &event - m_events.data() << ", unflushed "
            << static_cast<int>(how);
      }
      m_disk.apply(event);
      if (HasFailure()) break;
    }
    std::cout << cuts << " cuts in " << calls << " writes and flushes; at most "
              << promises.mostBack() << " messages came back\n";
  }

  /// The recording is worth what it misses nothing: all its writes together are the files.
  void expectCompleteRecording() {
    std::mt19937 random;
    EXPECT_TRUE(m_disk.afterCut(Disk::Unflushed::kKept, nullptr, random) == durableFiles());
  }

  std::map<std::string, std::string> durableFiles() const {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::directory_iterator(home() + "/DEFAULT"))
      if (const std::string name = entry.path().filename();
          name != "runtime" && !name.starts_with("index-"))
        files[name] = support::readFile(entry.path());
    return files;
  }

  std::string home() const { return m_home.path().string(); }

  support::TempFolder m_home, m_folder;
  unsigned m_seed = static_cast<unsigned>(setting("FAULTS_SEED", static_cast<int>(::getpid())));
  Disk m_disk;
  std::vector<Event> m_events;
};

TEST_F(PowerCut, KeepsWhatWasCommittedAndBringsBackFewOfTheLastMessagesRead) {
  cut(false, static_cast<std::size_t>(setting("FAULTS_CUTS", 60)));
  expectCompleteRecording();
}

TEST_F(PowerCut, BringsNothingBackWithFullSynchronisation) {
  cut(true, static_cast<std::size_t>(setting("FAULTS_CUTS", 30)));
  expectCompleteRecording();
}

/// Here the power is cut in the middle of each flush before it counts, and when space is free.
TEST_F(PowerCut, KeepsALargeUnitOfWorkThatIsInSeveralFiles) {
  record(false, "0");
  std::mt19937 random;
  Promises promises(false);
  bool done = false;
  for (const Event& event : m_events) {
    const auto& [type, file, offset, length, micros] = event.header;
    if (type == kMark) promises.mark(event.data, micros);
    done = done || (type == kMark && event.data == "did");
    if (type == kMark) continue;
    if (type == kSync && !done) {
      const auto names = found(m_disk.afterCut(Disk::Unflushed::kLast, &event, random));
      EXPECT_EQ(promises.faultOf(names, micros), "") << &event - m_events.data();
    }
    m_disk.apply(event);
  }
  const auto names = found(m_disk.afterCut(Disk::Unflushed::kDropped, nullptr, random));
  EXPECT_EQ(promises.faultOf(names, m_events.back().header.micros), "");
}

/// Of a reader that does nothing more, on a disk that fails once.
TEST_F(PowerCut, FindsNothingInMemoryForLong) {
  tell({"connect", "put Q a", "disconnect"});
  Peer reader(home(), {{"LD_PRELOAD", preloadLibrary()}, {"FAULTS_FAIL", "1:5"}});
  for (const char* words : {"connect", "sget Q", "commit"}) reader.words(words);
  EXPECT_TRUE(support::eventually([&] {
    lay(durableFiles());
    return browsed().empty();
  }));
}

/// Each is a file that is written under another name.
TEST_F(PowerCut, KeepsAQueueAndASettingOnceTheCallHasReturned) {
  presetDisk();
  {
    Peer maker(home(), recorded());
    for (const char* words : {"connect", "create R"}) maker.words(words);
  }
  synchroniseFully(recorded());
  std::mt19937 random;
  for (const Event& event : readRecording(m_folder / "recording")) {
    EXPECT_EQ(found(m_disk.afterCut(Disk::Unflushed::kLast, &event, random)).size(), 0u);
    m_disk.apply(event);
  }
  lay(m_disk.afterCut(Disk::Unflushed::kDropped, nullptr, random));
  EXPECT_EQ(support::readFile(m_folder / "cut/DEFAULT/manager"), durableFiles().at("manager"));
  Peer booted(m_folder / "cut");
  booted.words("connect");
  EXPECT_EQ(booted.ask("depth R"), "0 0 0");
}

#ifdef FERRY_KILL_POINTS
TEST_F(PowerCut, KeepsWhatIsSeenOfADeadProgramsUnitOfWork) {
  tell({"connect", "put Q a", "disconnect"});
  presetDisk();
  Environment killed = recorded(), stopped = recorded();
  killed["BXM_KILL_AT"] = "append-end";
  stopped["BXM_STOP_AT"] = "recover-published";
  Peer neighbour(home()), dead(home(), killed), finisher(home(), stopped);
  for (Peer* each : {&neighbour, &dead}) each->words("connect");
  EXPECT_FALSE(dead.ask("put Q b"));
  finisher.tell("connect");
  ASSERT_TRUE(finisher.waitForStop());
  const std::vector<std::string> seen{"a", "b"};
  EXPECT_EQ(neighbour.words("browse Q"), seen);
  for (const Event& event : readRecording(m_folder / "recording")) m_disk.apply(event);
  std::mt19937 random;
  lay(m_disk.afterCut(Disk::Unflushed::kDropped, nullptr, random));
  EXPECT_EQ(browsed(), seen);
}
#endif

} // namespace
} // namespace faults
