#include "tests/manager/admin/programs.h"

namespace {

TEST_F(Programs, QueuesAreMadeListedAndDeleted) {
  EXPECT_EQ(done({"queue", "create", "A/b%"}), "Queue A/b% created.\n")
      << "the first manager is made for it";
  EXPECT_EQ(done({"queue", "create", "B", "--max-depth", "7", "--max-length", "9"}),
            "Queue B created.\n");
  EXPECT_THAT(bxadm({"queue", "create", "B"}), FailsWithOneLine("B already"));
  EXPECT_EQ(done({"queue", "list"}), "A/b% depth 0 of 5000, messages up to 4194304 bytes\n"
                                     "B depth 0 of 7, messages up to 9 bytes\n");
  EXPECT_EQ(done({"queue", "delete", "A/b%", "-m", "DEFAULT"}), "Queue A/b% deleted.\n");
  EXPECT_THAT(bxadm({"queue", "delete", "A/b%"}), FailsWithOneLine("A/b%"));
  EXPECT_EQ(done({"queue", "list", "-m", "DEFAULT"}), "B depth 0 of 7, messages up to 9 bytes\n");
}

TEST_F(Programs, QueuesThatCannotBeAreRefused) {
  EXPECT_THAT(bxadm({"queue", "list", "-m", "NONE"}), FailsWithOneLine("NONE"));
  EXPECT_THAT(bxadm({"queue", "create", "a-b"}), FailsWithOneLine("a-b"));
  EXPECT_THAT(bxadm({"queue", "create", "Q", "--max-depth", "1000000000"}),
              FailsWithOneLine("999999999"));
  EXPECT_THAT(bxadm({"queue", "create", "Q", "--max-length", "104857601"}),
              FailsWithOneLine("104857600"));
  EXPECT_EQ(done({"queue", "list"}), "");
}

} // namespace
