#include "tests/manager/admin/programs.h"

namespace {

TEST_F(Programs, QueuesAreMadeListedAndDeleted) {
  EXPECT_EQ(done({"queue", "create", "A/b%"}), "Queue A/b% created.\n")
      << "the first manager is made for it";
  EXPECT_EQ(done({"queue", "create", "B", "--max-depth", "07", "--max-length", "010"}),
            "Queue B created.\n");
  EXPECT_THAT(bxadm({"queue", "create", "B"}), FailsWithOneLine("B already"));
  EXPECT_EQ(done({"queue", "list"}), "NAME  DEPTH  MAX DEPTH  MAX LENGTH  INHIBITED\n"
                                     "A/b%      0       5000     4194304\n"
                                     "B         0          7          10\n");
  EXPECT_THAT(done({"top", "--count", "1"}), testing::HasSubstr(" B depth 0 of 7, 0 put/s"));
  EXPECT_THAT(done({"top", "--count", "2", "--interval", "0.1", "--json"}),
              testing::ContainsRegex("\"queue\":\"A/b%\",\"depth\":0.*\"oldest_age_ms\":null"));
  support::Process({support::binDir() + "/ferry", "-f", "B"})
      .environment("BXM_HOME", home)
      .input("1\n2\n3\n")
      .run();
  EXPECT_EQ(run("ferry", {"-r", "B", "-c", "1"}).out, "1\n");
  EXPECT_THAT(done({"queue", "show", "B"}),
              testing::ContainsRegex("depth +2\noldest put +20[^\n]*\nuncommitted +0\nreaders +0\n"
                                     "writers +0\nputs +3\ngets +1\ncounted since +20"));
  EXPECT_EQ(done({"queue", "delete", "A/b%", "-m", "DEFAULT", "--force"}), "Queue A/b% deleted.\n");
  EXPECT_THAT(bxadm({"queue", "delete", "A/b%", "--force"}), FailsWithOneLine("A/b%"));
  EXPECT_EQ(done({"queue", "list", "-m", "DEFAULT"}),
            "NAME  DEPTH  MAX DEPTH  MAX LENGTH  INHIBITED\n"
            "B         2          7          10\n");
}

TEST_F(Programs, QueuesThatCannotBeAreRefused) {
  EXPECT_THAT(bxadm({"queue", "list", "-m", "NONE"}), FailsWithOneLine("NONE"));
  EXPECT_THAT(bxadm({"queue", "create", "a-b"}), FailsWithOneLine("a-b"));
  EXPECT_EQ(done({"queue", "list"}), "");
}

} // namespace
