#include "tests/manager/admin/programs.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

TEST_F(Programs, WrongWordsGetTheUsageAndStatus2) {
  using Words = std::vector<std::string>;
  for (const Words& words : {Words{},
                             Words{"manager"},
                             Words{"manager", "frobnicate"},
                             Words{"manager", "create"},
                             Words{"manager", "create", "A", "B"},
                             Words{"manager", "create", "--frob"},
                             Words{"manager", "list", "A"},
                             Words{"manager", "default", "A", "--json"},
                             Words{"manager", "alter", "A"},
                             Words{"manager", "alter", "A", "--sync", "sometimes"},
                             Words{"queue", "create"},
                             Words{"queue", "create", "Q", "--max-depth"},
                             Words{"queue", "create", "Q", "-m"},
                             Words{"queue", "create", "Q", "--max-depth", "many"},
                             Words{"queue", "create", "Q", "--max-depth", "1x"},
                             Words{"queue", "create", "Q", "--max-depth", "1000000000"},
                             Words{"queue", "create", "Q", "--max-length", "104857601"},
                             Words{"queue", "create", "Q", "--max-length", "99999999999"},
                             Words{"queue", "create", "Q", "--priority", "0x1"},
                             Words{"queue", "alter", "Q", "--inhibit-put", "maybe"},
                             Words{"queue", "delete", "Q"},
                             Words{"queue", "purge", "Q"},
                             Words{"manager", "delete", "A"},
                             Words{"browse"},
                             Words{"move", "Q"},
                             Words{"move", "Q", "R", "--count", "-1"},
                             Words{"move", "Q", "R", "--count", ""},
                             Words{"top", "--count", "1", "--interval", "nan"},
                             Words{"export"},
                             Words{"import", "Q", "R"},
                             Words{"backup", ""},
                             Words{"restore", "B"},
                             Words{"command-server"},
                             Words{"command-server", "restart"}}) {
    const auto result = bxadm(words);
    EXPECT_EQ(result.status, 2) << testing::PrintToString(words);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, StartsWith("bxadm"));
    EXPECT_THAT(result.err, HasSubstr("; usage: bxadm"));
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
  }
  EXPECT_THAT(run("strbxcsv", {"A", "B"}).err, HasSubstr("usage: strbxcsv [OPTIONS] [MANAGER]"));
  EXPECT_THAT(bxadm({"frobnicate"}).err, HasSubstr("there is no command frobnicate"));
  EXPECT_EQ(run("endbxcsv", {"--help-me"}).status, 2);
  EXPECT_FALSE(std::filesystem::exists(home)) << "wrong words do nothing";
}

TEST_F(Programs, ManagersAreMadeListedAndDeleted) {
  EXPECT_EQ(done({"manager", "list"}), "");
  EXPECT_EQ(done({"manager", "create", "B/c%d"}), "Queue manager B/c%d created.\n");
  EXPECT_EQ(done({"manager", "create", "--default", "A"}), "Queue manager A created.\n");
  EXPECT_EQ(done({"manager", "create", "default"}), "Queue manager default created.\n");
  EXPECT_EQ(done({"manager", "create", "..", "--default"}), "Queue manager .. created.\n");
  EXPECT_EQ(managers(), "..* A B/c%d default ");
  EXPECT_FALSE(std::filesystem::exists(folder / "manager")) << "nothing leaves the home";
  EXPECT_THAT(bxadm({"manager", "create", "A"}), FailsWithOneLine("A already"));
  EXPECT_EQ(done({"manager", "delete", "..", "--force"}), "Queue manager .. deleted.\n");
  EXPECT_EQ(done({"manager", "delete", "B/c%d", "--force"}), "Queue manager B/c%d deleted.\n");
  EXPECT_THAT(bxadm({"manager", "delete", "B/c%d", "--force"}), FailsWithOneLine("B/c%d"));
  EXPECT_EQ(managers(), "A default ") << "nobody inherits the mark";
  EXPECT_THAT(bxadm({"queue", "list"}), FailsWithOneLine("default"));
  EXPECT_EQ(done({"manager", "create", "A2", "--default"}), "Queue manager A2 created.\n");
  EXPECT_EQ(done({"manager", "default", "--json"}), "{\n  \"name\": \"A2\"\n}\n");
  EXPECT_EQ(done({"queue", "list"}), "");
}

TEST_F(Programs, NamesThatAreNoneAreRefused) {
  for (const std::string& name : {std::string("a b"), std::string(49, 'x'), std::string("a-b"),
                                  std::string("caf\xc3\xa9"), std::string("")}) {
    EXPECT_THAT(bxadm({"manager", "create", name}), FailsWithOneLine(name));
    EXPECT_THAT(bxadm({"manager", "delete", name, "--force"}), FailsWithOneLine(name));
    EXPECT_THAT(bxadm({"manager", "alter", name, "--sync", "full"}), FailsWithOneLine(name));
  }
  for (const std::string& name : {std::string(48, '/'), std::string("bxclient.ini")})
    EXPECT_EQ(done({"manager", "create", name}), "Queue manager " + name + " created.\n");
  EXPECT_FALSE(std::filesystem::exists(home + "/bxclient.ini")) << "the client's settings";
}

TEST_F(Programs, TheSyncAndTheCommandServerAreSwitched) {
  done({"manager", "create", "A"});
  EXPECT_EQ(done({"manager", "alter", "--sync", "full", "A"}),
            "Queue manager A altered: sync full.\n");
  EXPECT_EQ(done({"manager", "alter", "A", "--sync", "batch"}),
            "Queue manager A altered: sync batch.\n");
  EXPECT_EQ(run("endbxcsv", {"A"}).out, "Command server stopped.\n");
  EXPECT_EQ(run("endbxcsv", {"A"}).status, 0) << "stopped is stopped";
  EXPECT_EQ(run("strbxcsv", {"A"}).out, "Command server started.\n");
  EXPECT_THAT(run("strbxcsv", {"NONE"}), FailsWithOneLine("NONE"));
  EXPECT_THAT(run("strbxcsv"), FailsWithOneLine("default"));
}

TEST_F(Programs, AFullStandardOutputIsAnError) {
  done({"manager", "create", "A"});
  support::Process list({support::binDir() + "/bxadm", "manager", "list"});
  list.environment("BXM_HOME", home).redirect(1, "/dev/full", O_WRONLY);
  EXPECT_THAT(list.run(), FailsWithOneLine("standard output"));
}

} // namespace
