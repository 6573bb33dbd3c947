#include "tests/manager/faults/peer.h"
#include "tests/support/process.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <set>
#include <thread>

namespace faults {
namespace {

namespace fs = std::filesystem;
using support::readFile;
using ::testing::HasSubstr;
using Names = std::vector<std::string>;

/// A manager whose queue Q holds a20 to a199 of one unit of work and big0 to big4 of another, in
/// log-1; what was got before is told in log-0. What is on the queue B has expired.
class Damaged : public ::testing::Test {
protected:
  static void SetUpTestSuite() {
    s_sound = std::make_unique<support::TempFolder>();
    const std::string home = s_sound->path().string();
    Peer founder(home), reader(home);
    for (const char* words : {"connect", "create Q", "create B", "sputn Q a 200 @300", "commit"})
      founder.words(words);
    reader.words("connect");
    for (int i = 0; i < 20; ++i) reader.words("get Q");
    reader.words("disconnect");
    for (const char* words : {"eput B brief 1", "sputn Q big 5 @20000", "commit", "disconnect"})
      founder.words(words);
    std::this_thread::sleep_for(std::chrono::milliseconds(120));
  }
  static void TearDownTestSuite() { s_sound.reset(); }

  Damaged() {
    copy(s_sound->path().string(), home());
    for (int i = 20; i < 200; ++i) m_there.push_back("a" + std::to_string(i) + "@300");
    for (int i = 0; i < 5; ++i) m_there.push_back("big" + std::to_string(i) + "@20000");
  }

  /// With the holes of the runtime, which is large.
  static void copy(const std::string& from, const std::string& to) {
    EXPECT_EQ(std::system(("cp -r " + from + "/. " + to).c_str()), 0);
  }
  std::string home() const { return m_home.path().string(); }
  std::string pathOf(const std::string& file) const { return home() + "/DEFAULT/" + file; }
  void boot() const { fs::remove(pathOf("runtime")); }

  /// Writes over a file, from a place beside a text; nothing cuts it off there.
  static void change(const std::string& path, const std::string& text, int offset,
                     const std::string& into) {
    const std::size_t at = text.empty() ? 0 : readFile(path).find(text);
    ASSERT_NE(at, std::string::npos) << text;
    if (into.empty()) return fs::resize_file(path, at + static_cast<std::size_t>(offset));
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    file.seekp(static_cast<std::streamoff>(at) + offset);
    file << into;
  }

  /// Log files that hold a text.
  Names logsWith(const std::string& text, const std::string& manager = "DEFAULT") const {
    Names paths;
    for (const auto& entry : fs::directory_iterator(m_home / manager))
      if (entry.path().filename().string().starts_with("log-") &&
          readFile(entry.path()).find(text) != std::string::npos)
        paths.push_back(entry.path());
    return paths;
  }

  static support::Result bxadm(const std::string& home, Names words) {
    words.insert(words.begin(), support::binDir() + "/bxadm");
    return support::Process(std::move(words)).environment("BXM_HOME", home).run();
  }
  static Names browsed(const std::string& home, const std::string& queue = "Q") {
    Peer peer(home);
    peer.words("connect");
    return peer.words("browse " + queue);
  }

  struct Seen {
    std::string errors; ///< what was written to standard error
    bool failed = false;
    Names names;
  };
  /// All that a program does with a queue. Throws when it dies or does not answer.
  Seen use() const {
    Seen seen;
    Peer peer(home(), {}, m_home / "errors");
    const auto ask = [&](const std::string& words) {
      const std::string answer = peer.ask(words).value();
      seen.failed = seen.failed || (answer.starts_with("2 ") && answer != "2 2033");
      return split(answer);
    };
    if (ask("connect")[0] == "0") {
      ask("browse Q");
      ask("depth Q");
      for (int left = 600; left > 0; --left) {
        const Names got = ask("get Q");
        if (got.size() < 3 && got[1] != "2101") break;
        if (got.size() > 2) seen.names.push_back(got[2]);
      }
      for (const char* words : {"put Q new", "get Q", "disconnect"}) ask(words);
    }
    seen.errors = readFile(m_home / "errors");
    return seen;
  }

  static inline std::unique_ptr<support::TempFolder> s_sound;
  support::TempFolder m_home;
  Names m_there;
};

/// What disks, controllers and people do to a file, and what comes of it.
struct Case {
  const char* name;
  const char* file;
  const char* text; ///< that the damage is beside
  int offset;
  std::string into; ///< what is written over the file; nothing: its end is cut off
  bool boot;
  std::size_t first, count; ///< of the messages that cannot be read
  const char* told;         ///< to who reads
  const char* found;        ///< by a check
  std::size_t aside = 0;    ///< so many messages are set aside by a repair, or all are kept ...
  const char* queue = "Q";  ///< ... on this queue
};

class Damage : public Damaged, public ::testing::WithParamInterface<Case> {
protected:
  Names rest(bool all) const {
    Names names = m_there;
    const auto lost = names.begin() + static_cast<long>(GetParam().first);
    if (!all) names.erase(lost, lost + static_cast<long>(GetParam().count));
    return names;
  }

  void expectRepair(const std::string& home) const {
    const Case& each = GetParam();
    const auto found = bxadm(home, {"check"});
    EXPECT_EQ(found.status, *each.found ? 1 : 0);
    EXPECT_THAT(found.out, HasSubstr(*each.found ? each.found : " 0 damages."));
    const auto repaired = bxadm(home, {"repair", "DEFAULT"});
    EXPECT_EQ(repaired.status, 0) << repaired.err;
    EXPECT_THAT(bxadm(home, {"check"}).out, HasSubstr(" 0 damages."));
    EXPECT_EQ(browsed(home, each.queue), rest(each.aside == 0));
    EXPECT_EQ(browsed(home, "B"), Names{}) << "it has expired";
    const std::string aside = readFile(home + "/DEFAULT/damaged-1");
    std::size_t count = 0;
    for (auto at = aside.find("\"Q\""); at != aside.npos; at = aside.find("\"Q\"", at + 1)) ++count;
    EXPECT_EQ(count, each.aside);
    if (count > 0) {
      EXPECT_THAT(aside, HasSubstr(",\"text\":\"" + m_there[each.first].substr(0, 3)));
    }
  }
};

/// Nobody dies of it or hangs, no changed text is delivered, and what is missing is told.
TEST_P(Damage, IsToldAndRepairedAndTheRestIsServed) {
  const Case& each = GetParam();
  change(pathOf(each.file), each.text, each.offset, each.into);
  if (each.boot) boot();
  const support::TempFolder other;
  copy(home(), other.path().string());
  const Seen seen = use();
  EXPECT_EQ(seen.names, rest(false));
  EXPECT_THAT(seen.errors, HasSubstr(each.told));
  EXPECT_EQ(seen.failed || !seen.errors.empty(), *each.told != 0) << seen.errors;
  expectRepair(other.path().string());
}

const std::string kCopies(4200, '?'), kPage(4096, '?');
constexpr const char *kRecordIs = "log-1, byte 4096: a commit's messages are damaged",
                     *kBytesAre = " bytes are damaged";
/// From a message's data back to its header's priority and to its record.
constexpr int kPriority = -31, kRecord = -107;

INSTANTIATE_TEST_SUITE_P(
    Of, Damage,
    ::testing::Values(
        Case{"Message", "log-1", "a150@300|", 9, "?", false, 130, 1, "log-1 at", "cannot be read",
             1},
        Case{"MessageBeforeABoot", "log-1", "a150@300|", 9, "?", true, 130, 1, "log-1, byte",
             "1 messages are damaged", 1},
        Case{"MessageHeader", "log-1", "a150@300|", kPriority, "\5", true, 0, 180, kRecordIs,
             kRecordIs, 180},
        Case{"Record", "log-1", "a0@300|", kRecord, "?", true, 0, 180, kBytesAre, kBytesAre, 180},
        Case{"LastRecord", "log-1", "big0@20000|", kRecord, "?", true, 180, 5, kBytesAre, kBytesAre,
             5},
        Case{"LogHeader", "log-1", "", 0, "?", true, 0, 0, "log-1, byte 0: the header",
             "elsewhere"},
        Case{"LogPage", "log-1", "", 0, kPage, false, 0, 0, "", "not served"},
        Case{"LogPageBeforeABoot", "log-1", "", 0, kPage, true, 0, 185, "not served", "log-1", 185},
        Case{"LogEnd", "log-1", "", 1 << 20, "", true, 0, 0, "log-1, byte", "has lost its end"},
        Case{"OneCopyOfAQueue", "queue-1", "BXMQ", 17, "X", true, 0, 0, "",
             "one of its two copies"},
        Case{"Queue", "queue-1", "", 0, kCopies, false, 0, 0, "", "queue-1 is damaged"},
        Case{"QueueBeforeABoot", "queue-1", "", 0, kCopies, true, 0, 185, "queue-1 is damaged",
             "queue-1 is", 0, "RECOVERED.1"},
        Case{"Manager", "manager", "", 0, "?", true, 0, 185, "manager", "DEFAULT/manager"},
        Case{"IndexEnd", "index-1-0", "", 4096, "", false, 0, 185, "", "its index 0"},
        Case{"IndexEntry", "index-1-0", "", 4096 + 8 * 150, std::string(8, '\x11'), false, 130, 1,
             "is damaged", "there is none"},
        Case{"IndexBehindItsCount", "index-1-0", "", 16, "\xCC", false, 0, 0, "", ""},
        Case{"Runtime", "runtime", "", 0, "?", false, 0, 0, "", ""}),
    [](const auto& each) { return std::string(each.param.name); });

/// What nobody has thought of: FAULTS_DAMAGES of each file, half of them found after a boot.
TEST_F(Damaged, AnywhereAtRandomIsToldAndHarmsNobody) {
  std::set<std::string> known(m_there.begin(), m_there.end());
  for (int i = 0; i < 20; ++i) known.insert("a" + std::to_string(i) + "@300");
  for (const std::string file : {"log-0", "log-1", "queue-1", "manager", "index-1-0", "runtime"})
    for (int number = 0; number < setting("FAULTS_DAMAGES", 4); ++number) {
      std::mt19937 random(static_cast<unsigned>(number));
      fs::remove_all(m_home / "DEFAULT");
      fs::remove(m_home / "errors");
      copy(s_sound->path().string(), home());
      const std::string bytes = readFile(pathOf(file));
      std::size_t at = 0;
      do at = random() % bytes.size();
      while (std::string_view(bytes).substr(at / 4096 * 4096, 4096).find_first_not_of('\0') ==
             std::string::npos);
      const std::string into(random() % 50, static_cast<char>(random() % 256)); // none: cut off
      const bool isBoot = random() % 2 != 0;
      change(pathOf(file), "", static_cast<int>(at), into);
      if (isBoot) boot();
      SCOPED_TRACE(file + ", byte " + std::to_string(at) + ", number " + std::to_string(number));
      Seen seen;
      ASSERT_NO_THROW(seen = use());
      for (const std::string& name : seen.names) EXPECT_TRUE(known.contains(name)) << name;
      const bool mayBeSilent = !isBoot && (file == "index-1-0" || file == "runtime");
      EXPECT_TRUE(seen.names == m_there || seen.failed || !seen.errors.empty() || mayBeSilent);
    }
}

TEST_F(Damaged, MessageIsNotMovedAlongWithOthers) {
  Peer peer(home());
  peer.words("connect");
  for (const std::string unit : {"0-", "1-", "2-", "3-"}) // a file each
    for (const std::string& words :
         {"sputn Q old" + unit + " 2 @400", {"sputn B new 13 @300000"}, std::string("commit")})
      peer.words(words);
  change(logsWith("old1-0@400|").at(0), "old1-0@400|", 20, "?");
  for (std::size_t i = 0; i < m_there.size(); ++i) peer.words("get Q");
  for (int i = 0; i < 52; ++i) peer.words("get B");
  ASSERT_TRUE(support::eventually([&] { // moves have their pauses; a deletion has all looked over
    for (const char* words : {"create T", "delete T", "put B x", "get B"}) peer.words(words);
    return logsWith("old1-1@400|").size() > 1;
  }));
  for (const char* answer : {"0 0 old0-0@400", "0 0 old0-1@400", "2 2101", "0 0 old1-1@400"})
    EXPECT_EQ(peer.ask("get Q"), answer);
}

/// What nothing but a lock in memory tells to be whole might be what a power cut left of a commit.
TEST_F(Damaged, LastCommitIsToldOnceABootOrABackupHasSeenIt) {
  const support::TempFolder apart;
  Peer writer(home());
  for (const char* words : {"connect", "put Q last@500"}) writer.words(words);
  EXPECT_EQ(bxadm(home(), {"backup", apart / "B"}).status, 0);
  writer.signal(SIGKILL);
  writer.waitForDeath();
  boot();
  browsed(home());
  for (const std::string& folder :
       {std::string("DEFAULT"), "../" + apart.path().filename().string() + "/B"})
    change(logsWith("last@500|", folder).at(0), "last@500|", 20, "?");
  boot();
  EXPECT_EQ(bxadm(home(), {"restore", apart / "B", "N"}).status, 0);
  for (const char* name : {"DEFAULT", "N"})
    EXPECT_THAT(bxadm(home(), {"check", name}).out, HasSubstr(" 1 damage.")) << name;
}

TEST_F(Damaged, IndexOfAnEarlierTimeIsFoundByACheck) {
  const support::TempFolder before;
  copy(home(), before.path().string());
  Peer writer(home());
  for (const char* words : {"connect", "put Q more", "disconnect"}) writer.words(words);
  for (const std::string file : {"runtime", "index-1-0"})
    fs::copy(before / ("DEFAULT/" + file), pathOf(file), fs::copy_options::overwrite_existing);
  EXPECT_THAT(bxadm(home(), {"check"}).out, HasSubstr("186 messages in the logs, its index 185"));
}

TEST_F(Damaged, ManagerIsRepairedWithoutWhatADeadProcessHadGot) {
  Peer reader(home());
  for (const char* words : {"connect", "get Q", "get Q"}) reader.words(words);
  reader.signal(SIGKILL);
  reader.waitForDeath();
  change(pathOf("log-1"), "a20@300|", 9, "?");
  EXPECT_EQ(bxadm(home(), {"repair", "DEFAULT"}).status, 0);
  EXPECT_EQ(browsed(home()), Names(m_there.begin() + 2, m_there.end()));
}

/// In whatever order the files are listed.
TEST_F(Damaged, QueueThatWasNeverSaidToExistGivesWay) {
  const support::TempFolder other;
  Peer peer(other.path().string());
  for (const char* words : {"connect", "create A", "create B", "create Q"}) peer.words(words);
  fs::copy(other / "DEFAULT/queue-3", pathOf("queue-3"));
  const std::string used = readFile(pathOf("queue-1"));
  fs::remove(pathOf("queue-1"));
  support::writeFile(pathOf("queue-1"), used);
  for (const char* words : {"delete Q", "create Q"}) peer.words(words);
  fs::copy(other / "DEFAULT/queue-4", pathOf("queue-4"));
  boot();
  EXPECT_EQ(browsed(home()), m_there);
}

} // namespace
} // namespace faults
