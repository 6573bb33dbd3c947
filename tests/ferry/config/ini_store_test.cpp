#include "ferry/config/parameter_ini_store.h"
#include "ferry/errors/exception.h"
#include "tests/support/file_size_limit.h"
#include "tests/support/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>

static bool g_renameFails = false;
static ino_t g_synced = 0;

static struct stat statOf(const std::string& path) {
  struct stat s {};
  stat(path.c_str(), &s);
  return s;
}

/// Fails on demand as for a file that is mounted by itself, and for one that a crash could tear.
extern "C" int rename(const char* from, const char* to) noexcept {
  if (!g_renameFails && statOf(from).st_ino == g_synced)
    return renameat(AT_FDCWD, from, AT_FDCWD, to);
  errno = EBUSY;
  return -1;
}

extern "C" int fsync(int file) {
  g_synced = statOf("/proc/self/fd/" + std::to_string(file)).st_ino;
  return fdatasync(file);
}

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class IniStoreTest : public ::testing::Test {
protected:
  /// "group:name=value" of all parameters in a file with the text.
  std::vector<std::string> read(const std::string& text) {
    put(text);
    CCMEParameterINIStore store(m_file);
    store.read();
    std::vector<std::string> all;
    for (const auto& [key, p] : store.parameters())
      all.push_back(UCSS::ucsToUTF8(p.m_sGroup + u":" + p.m_sName + u"=" + p.value()));
    return all;
  }
  void put(const std::string& text) { support::writeFile(m_file, text); }
  std::string content() const { return support::readFile(m_file); }
  std::ptrdiff_t filesInFolder() const {
    return std::distance(std::filesystem::directory_iterator(m_folder.path()), {});
  }
  /// "+a" keeps entries of the folder from being removed and renamed; false where the user
  /// or the file system cannot.
  bool chattr(const std::string& mode) const {
    return std::system(("chattr " + mode + " " + (m_folder / ". 2>/dev/null")).c_str()) == 0;
  }
  /// What the call throws when files cannot grow beyond a limit, which stands for a disk
  /// that fills up half-way.
  template <typename Call>
  static std::string failureWithin(rlim_t limit, Call call) {
    const support::FileSizeLimit tight(limit);
    return failure(call);
  }
  /// The id and text of what the call throws.
  template <typename Call>
  static std::string failure(Call call) {
    try {
      call();
      return "";
    } catch (const VRK_Exception& e) {
      EXPECT_EQ(e.Severity(), VRK_CRITICAL_ERROR);
      return UCSS::ucsToUTF8(e.getKELErrorMessage(0).getId()) + " " + e.what();
    }
  }

  support::TempFolder m_folder;
  const std::string m_file = m_folder / "a.ini";
};

TEST_F(IniStoreTest, ReadsSectionsAndValues) {
  EXPECT_THAT(read("  [Queues]  \n  depth = 5000   \nname=a=b\n # no=1\nlimit=1 # one\njunk\n"
                   "[Other\n=empty name\nlast="),
              ElementsAre("Othe:=empty name", "Othe:last=", "Queues:depth=5000",
                          "Queues:limit=1 # one", "Queues:name=a=b"));
  EXPECT_THAT(read("a=1\n[]\nb=2\n[\nc=3\n[ s ]\nd=4"),
              ElementsAre(" s :d=4", ":a=1", ":b=2", ":c=3"));
  EXPECT_THAT(read("[q]\nDepth=1\nDEPTH=2\n[Q]\ndepth=3\n"), ElementsAre("q:Depth=3"));
}

TEST_F(IniStoreTest, ReadsFilesAsPeopleHaveThem) {
  EXPECT_THAT(read(""), IsEmpty());
  EXPECT_THAT(read("\xEF\xBB\xBF[s]\r\na\t=\tb c\t\r\n\r\nm\u00FCll=\u20AC\r\n"),
              ElementsAre("s:a=b c", "s:m\u00FCll=\u20AC"));
}

TEST_F(IniStoreTest, LongLinesAreSeveralButNoCharacterIsTornApart) {
  EXPECT_THAT(read("k=" + std::string(1497, 'v') + "\nb=1"),
              ElementsAre(":b=1", ":k=" + std::string(1497, 'v')));
  for (const std::string& c : {std::string("x"), std::string("\u20AC"), std::string("\U0001F600")})
    for (size_t before = 0; before < c.size(); ++before) {
      const std::string value(1497 - before, 'v');
      EXPECT_THAT(read("k=" + value + c + "=1\n"), ElementsAre(":k=" + value, ":" + c + "=1"));
    }
}

TEST_F(IniStoreTest, ADeclaredParameterGainsOnlyAValue) {
  const char* rows[][7] = {{"Queues", "Depth", "INTEGER", "text", "5", "Y", "N"}};
  put("[QUEUES]\nDEPTH=7\n");
  CCMEParameterINIStore store(m_file);
  store.initialize(u"", rows, 1);
  store.read();
  const CCMEParameter& p = *store.find(u"queues", u"depth");
  EXPECT_TRUE(p.m_bFound);
  EXPECT_EQ(p.m_sGroup + p.m_sName + p.m_sStoreValue + p.m_sDefault, u"QueuesDepth75");
  EXPECT_NO_THROW(store.handleErrors());
}

TEST_F(IniStoreTest, WritesKeysAndValues) {
  const char* rows[][7] = {{"Zone", "Size", "INTEGER", "", "5", "N", "N"}};
  put("[b]\nx = \u20AC\n[A]\ny=2\nz=3\n[]\nnone=0\n");
  const std::string link = m_folder / "link";
  ASSERT_EQ(symlink("a.ini", link.c_str()), 0);
  CCMEParameterINIStore store(link);
  store.initialize(u"", rows, 1);
  store.read();
  chmod(m_file.c_str(), 0640);
  const ino_t old = statOf(m_file).st_ino;
  store.write();
  EXPECT_EQ(content(), "NONE=0\n[A]\nY=2\nZ=3\n[B]\nX=\u20AC\n[ZONE]\nSIZE=5\n");
  EXPECT_EQ(statOf(m_file).st_mode & 0777, 0640U);
  EXPECT_NE(statOf(m_file).st_ino, old) << "not overwritten";
  EXPECT_EQ(statOf(m_folder.path()).st_ino, g_synced) << "and there after a crash";
  EXPECT_TRUE(std::filesystem::is_symlink(link));
}

TEST_F(IniStoreTest, AFailedWriteSaysSoAndKeepsTheOldFile) {
  put("a=" + std::string(1000, 'v') + "\n");
  const std::string old = content();
  CCMEParameterINIStore store(m_file);
  store.read();
  const std::string text = failureWithin(500, [&] { store.write(); });
  EXPECT_EQ(text, "9112E Failed to open ini file for writing [" + m_file + "]");
  EXPECT_EQ(content(), old);
  EXPECT_EQ(filesInFolder(), 1);
}

TEST_F(IniStoreTest, WritesInPlaceWhatItCannotReplace) {
  put("# a comment\nb=2\n");
  CCMEParameterINIStore store(m_file);
  store.read();
  g_renameFails = true;
  EXPECT_EQ(failure([&] { store.write(); }), "");
  g_renameFails = false;
  EXPECT_EQ(content(), "B=2\n");
  EXPECT_EQ(filesInFolder(), 1);

  if (!chattr("+a")) GTEST_SKIP() << "no folder can be made append-only";
  store.parameters()[u":A"].m_sDefault = UnicodeString(1000, u'a', 1000);
  EXPECT_NE(failureWithin(500, [&] { store.write(); }), "");
  EXPECT_EQ(content(), "B=2\n") << "found full before anything was overwritten";
  EXPECT_EQ(failure([&] { store.write(); }), "");
  chattr("-a");
  EXPECT_EQ(content(), "A=" + std::string(1000, 'a') + "\nB=2\n");
  EXPECT_EQ(filesInFolder(), 1);
}

TEST_F(IniStoreTest, RefusesWhatItCannotReadOrWrite) {
  const std::string folder = m_folder.path().string();
  for (const std::string& file : {folder, m_folder / "no/a.ini", std::string("/dev/full")}) {
    CCMEParameterINIStore store(file);
    EXPECT_EQ(failure([&] { store.read(); }),
              "9113E Failed to open ini file for reading [" + file + "]");
    store.parameters()[u"G:N"];
    EXPECT_EQ(failure([&] { store.write(); }),
              "9112E Failed to open ini file for writing [" + file + "]");
  }
  ::mkfifo(m_file.c_str(), 0600);
  EXPECT_NE(failure([&] { CCMEParameterINIStore(m_file).read(); }), "") << "a pipe without writer";
  EXPECT_EQ(failure([&] { CCMEParameterINIStore("/dev/null").read(); }), "");
}

} // namespace
