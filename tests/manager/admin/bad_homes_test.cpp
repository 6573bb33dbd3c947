#include "tests/manager/admin/programs.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace {

using testing::HasSubstr;

/// Everything that opens the manager M or its home.
class BadHome : public Programs {
protected:
  std::string store() const { return home + "/M/manager"; }

  void expectEveryProgramToFail(const std::string& text) const {
    EXPECT_THAT(bxadm({"queue", "create", "Q", "-m", "M"}), FailsWithOneLine(text));
    EXPECT_THAT(bxadm({"queue", "list", "-m", "M"}), FailsWithOneLine(text));
    EXPECT_THAT(bxadm({"manager", "alter", "M", "--sync", "full"}), FailsWithOneLine(text));
    EXPECT_THAT(run("endbxcsv", {"M"}), FailsWithOneLine(text));
  }
};

TEST_F(BadHome, ThatIsAFile) {
  support::writeFile(home, "no folder");
  EXPECT_THAT(bxadm({"manager", "create", "M"}), FailsWithOneLine(home));
  EXPECT_THAT(bxadm({"manager", "list"}), FailsWithOneLine(home));
  EXPECT_THAT(bxadm({"queue", "list"}), FailsWithOneLine(home));
  expectEveryProgramToFail(home);
}

/// What is made there is the group's, whatever the mask, and who died over it is in nobody's way.
TEST_F(BadHome, ThatIsAGroups) {
  if (::getuid() != 0) GTEST_SKIP() << "only root can become somebody else";
  std::filesystem::permissions(folder.path(), std::filesystem::perms{0755});
  ASSERT_EQ(::mkdir(home.c_str(), 0700), 0);
  ASSERT_EQ(::mkdir((home + "/.new").c_str(), 0700), 0);
  ASSERT_EQ(::chown(home.c_str(), 0, 4242), 0);
  ASSERT_EQ(::chmod(home.c_str(), 02770), 0);
  const std::string member = "umask 077; exec setpriv --reuid=65534 --regid=65534 --groups=4242 ";
  const auto result =
      support::Process({"/bin/sh", "-c", member + support::binDir() + "/ferry -C Q"})
          .environment("BXM_HOME", home)
          .run();
  if (result.status == 127) GTEST_SKIP() << "the programs are out of a member's reach";
  EXPECT_EQ(result.status, 0) << result.err;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(home))
    EXPECT_EQ(entry.status().permissions() & std::filesystem::perms(0077),
              std::filesystem::perms(entry.is_directory() ? 0070 : 0060))
        << entry;
}

TEST_F(BadHome, ThatIsNotOurs) {
  if (::getuid() != 0) GTEST_SKIP() << "only root can become somebody else";
  done({"manager", "create", "M", "--default"});
  std::filesystem::permissions(folder.path(), std::filesystem::perms{0755});
  auto stranger = [this](const std::string& words) {
    return support::Process({"/bin/sh", "-c",
                             "exec setpriv --reuid=65534 --regid=65534 --clear-groups " +
                                 support::binDir() + "/" + words})
        .environment("BXM_HOME", home)
        .run();
  };
  if (stranger("bxadm").status != 2) GTEST_SKIP() << "the programs are out of a stranger's reach";
  for (const std::string words : {"bxadm manager create N", "bxadm manager delete M --force",
                                  "bxadm queue list", "strbxcsv M"})
    EXPECT_THAT(stranger(words), FailsWithOneLine("Permission denied")) << words;
  EXPECT_THAT(stranger("ferry -s Q").err, HasSubstr(home + ": Permission denied\n"));
  EXPECT_EQ(managers(), "M* ");
}

TEST_F(BadHome, WithAStoreThatIsEmptyGoneGarbageOrOfAnotherFormat) {
  done({"manager", "create", "M"});
  done({"queue", "create", "Q", "-m", "M"});
  const std::string whole = support::readFile(store());
  const auto format = std::string(whole).replace(whole.find("format 2"), 8, "format 99");
  for (const std::string& content :
       {std::string(), std::string("short"), std::string(1 << 20, '\0'),
        std::string(1 << 20, '\xFF'), whole.substr(0, 40), whole.substr(0, whole.size() - 1),
        std::string(whole).replace(whole.find("store "), 7, "store 0"), format}) {
    support::writeFile(store(), content);
    expectEveryProgramToFail(content == format ? "format 99" : "M");
    EXPECT_EQ(support::readFile(store()), content) << "what is damaged is not touched";
  }
  EXPECT_THAT(bxadm({"repair", "M"}), FailsWithOneLine("format 99"));
  support::writeFile(store(), whole);
  EXPECT_THAT(done({"queue", "list", "-m", "M"}), HasSubstr("Q         0 "));
  std::filesystem::rename(store(), home + "/M/durable.mdb");
  expectEveryProgramToFail("format 1");
  EXPECT_EQ(managers(), "M ");
  std::filesystem::remove(home + "/M/durable.mdb");
  expectEveryProgramToFail("M");
  EXPECT_FALSE(std::filesystem::exists(store()));
  EXPECT_EQ(done({"manager", "delete", "M", "--force"}), "Queue manager M deleted.\n");
}

/// What would have a program wait for ever is not even opened.
TEST_F(BadHome, WithSomethingElseInThePlaceOfAFile) {
  done({"manager", "create", "M", "--default"});
  done({"queue", "create", "Q"});
  ASSERT_EQ(run("ferry", {"-f", "Q"}).status, 0);
  const auto pipe = [](const char* path) { return ::mkfifo(path, 0600); };
  const auto inner = [](const char* path) { return ::mkdir(path, 0700); };
  const auto device = [](const char* path) { return ::mknod(path, S_IFCHR | 0600, makedev(1, 5)); };
  for (const std::string file : {"default", "M/manager", "M/log-0", "M/queue-1", "M/runtime"})
    for (int (*make)(const char*) : {+pipe, +inner, +device}) {
      const std::string path = home + "/" + file;
      if (file != "M/runtime") std::filesystem::remove(home + "/M/runtime");
      std::filesystem::rename(path, path + ".away");
      if (make(path.c_str()) == 0) {
        EXPECT_THAT(bxadm({"queue", "list"}), FailsWithOneLine(path));
        EXPECT_THAT(bxadm({"check", file == "default" ? "" : "M"}), FailsWithOneLine(path));
        std::filesystem::remove(path);
      }
      std::filesystem::rename(path + ".away", path);
    }
  EXPECT_THAT(done({"queue", "list"}), HasSubstr("Q         0 "));
}

} // namespace
