#include "tests/manager/admin/programs.h"
#include "tests/manager/faults/peer.h"
#include "tests/support/postgres_cluster.h"

namespace {

/// Managers E and F in the folder, P and R in a database; E has messages.
class Copying : public Programs {
protected:
  Copying() {
    for (const char* name : {"E", "F"}) done({"manager", "create", name});
    for (const char* name : {"P", "R"})
      done({"manager", "create", name, "--store", cluster.uri("postgres")});
    for (const char* words :
         {"connect E", "create MANY", "sputn MANY m 9500", "commit", "create MIXED 7",
          "put MIXED low 1", "eput MIXED old 1", "eput MIXED young 9000", "put MIXED big@900000 9",
          "put MIXED high 9", "put MIXED next 9", "create NONE"})
      source.words(words);
    target.words("connect F");
  }
  support::Result copy(const std::string& from, const std::string& to, const std::string& killAt) {
    support::Process program({support::binDir() + "/bxadm", "manager", "copy", from, to});
    return program.environment("BXM_HOME", home).environment("BXM_KILL_AT", killAt).run();
  }
  support::PostgresCluster cluster;
  faults::Peer source{home}, target{home};
};

TEST_F(Copying, GoesOnWhereItWasKilled) {
  const std::vector<std::pair<std::string, std::vector<std::string>>> places = {
      {"EP", {"copy-opened", "copy-unit", "copy-put:2500", "copy-put:4002", "copy-unit:2"}},
      {"PF", {"commit-after", "copy-unit:2", "commit-before", "commit-after", "copy-verified:3"}},
      {"FR", {}}};
  for (const auto& [leg, killed] : places) {
    const std::string from = leg.substr(0, 1), to = leg.substr(1);
    for (const std::string& place : killed) EXPECT_TRUE(copy(from, to, place).killed) << place;
    EXPECT_THAT(copy("R", to, ""), FailsWithOneLine(killed.empty() ? "itself" : "not finished"));
    EXPECT_EQ(done({"manager", "copy", from, to}),
              "Queue MANY: 9500 messages copied, verified.\nQueue MIXED: 5 messages copied, "
              "verified.\nQueue NONE: 0 messages copied, verified.\nQueue manager " +
                  from + " copied to " + to + ": 3 queues, 9505 messages.\n");
    EXPECT_EQ(done({"queue", "list", "-m", to}), done({"queue", "list", "-m", "E"}));
  }
  for (const char* queue : {"browse MANY", "browse MIXED"})
    EXPECT_EQ(target.words(queue), source.words(queue));
}

TEST_F(Copying, TheToolWorksOnTheDefaultManagerWhereverThatIs) {
  const auto tool = [this](const std::string& bin) {
    return support::Process({bin + "/ferry", "-r", "Q"}).environment("BXM_HOME", home).run();
  };
  const std::string alone = folder / "alone"; // without the client bindings
  for (const char* what : {"/bin/ferry", "/lib/libbxm_r.so"}) {
    std::filesystem::create_directories(std::filesystem::path(alone + what).parent_path());
    std::filesystem::copy(support::binDir() + "/.." + what, alone + what);
  }
  for ([[maybe_unused]] const auto& [manager, others] :
       std::map<std::string, int>{{"E", 0}, {"P", 255}, {"F", 0}}) {
    done({"queue", "create", "Q", "-m", manager});
    done({"manager", "default", manager});
    source.words("connect " + manager);
    source.words("put Q of" + manager);
    EXPECT_EQ(done({"manager", "default"}), manager + "\n");
    EXPECT_EQ(tool(support::binDir()).out, "of" + manager + "\n");
#ifndef __SANITIZE_ADDRESS__ // whose own dlopen looks elsewhere
    EXPECT_EQ(tool(alone + "/bin").status, others);
#endif
  }
}

TEST_F(Copying, WhatWouldBeNoCopyIsRefused) {
  const auto refused = [this](const std::string& to, const std::string& text) {
    EXPECT_THAT(copy("E", to, ""), FailsWithOneLine(text));
  };
  refused("E", "itself");
  for (const char* words : {"create MIXED 4", "create NONE", "put NONE own"}) target.words(words);
  refused("F", "MIXED of F holds 4 messages at most");
  target.words("delete MIXED");
  refused("F", "queue NONE of F has messages already");
  EXPECT_NE(done({"queue", "list", "-m", "F"}).find("\nNONE      1 "), std::string::npos)
      << "nothing was written";
  target.words("get NONE");
  source.words("sget MANY");
  refused("F", "MANY of E and of F are in use");
  source.words("backout");
  refused("F", "MANY of E and of F differ behind 0 messages");
  done({"backup", folder / "B", "-m", "E"});
  EXPECT_THAT(bxadm({"restore", folder / "B", "P"}), FailsWithOneLine("queue manager P already"));
}

} // namespace
