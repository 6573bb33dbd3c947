#include "manager/store/lmdb/durable.h"
#include "tests/manager/admin/programs.h"

namespace {

using testing::HasSubstr;

/// Everything that opens the manager M or its home.
class BadHome : public Programs {
protected:
  std::string store() const { return home + "/M/durable.mdb"; }

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
  for (const std::string words :
       {"bxadm manager create N", "bxadm manager delete M", "bxadm queue list", "strbxcsv M"})
    EXPECT_THAT(stranger(words), FailsWithOneLine("Permission denied")) << words;
  EXPECT_THAT(stranger("ferry -s Q").err, HasSubstr(home + "/M: Permission denied\n"));
  EXPECT_EQ(done({"manager", "list"}), "M (default)\n");
}

TEST_F(BadHome, WithAStoreThatIsEmptyGoneOrGarbage) {
  done({"manager", "create", "M"});
  done({"queue", "create", "Q", "-m", "M"});
  const std::string whole = support::readFile(store());
  for (const std::string& content :
       {std::string(), std::string("short"), std::string(1 << 20, '\0'),
        std::string(1 << 20, '\xFF'), whole.substr(0, 4096), whole.substr(0, whole.size() - 4096),
        std::string(whole).replace(0, 8192, 8192, '?')}) {
    support::writeFile(store(), content);
    expectEveryProgramToFail("M");
    EXPECT_EQ(support::readFile(store()), content) << "what is damaged is not touched";
  }
  support::writeFile(store(), whole);
  EXPECT_THAT(done({"queue", "list", "-m", "M"}), HasSubstr("Q depth 0"));
  std::filesystem::remove(store());
  expectEveryProgramToFail("M");
  EXPECT_FALSE(std::filesystem::exists(store()));
  EXPECT_EQ(done({"manager", "delete", "M"}), "Queue manager M deleted.\n");
}

TEST_F(BadHome, WithAStoreOfANewerFormat) {
  done({"manager", "create", "M"});
  {
    const bxm::Durable durable(home + "/M", bxm::Durable::Open::kExisting);
    bxm::WriteTransaction txn(durable);
    bxm::writeSetting(txn.get(), durable, bxm::kSettingFormat, std::string("\x63\0\0\0", 4));
    txn.commit();
  }
  expectEveryProgramToFail("format 99");
}

} // namespace
