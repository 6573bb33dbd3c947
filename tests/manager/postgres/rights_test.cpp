#include "tests/manager/faults/peer.h"
#include "tests/support/postgres_cluster.h"

#include <gtest/gtest.h>

namespace {

using faults::Peer;
using namespace support;

/// A manager in a database, with a role for each right and a queue that was made before and one
/// that was made after the rights.
class Rights : public testing::Test {
protected:
  Rights() {
    for (const std::string& role : kRoles)
      cluster.psql("postgres", "CREATE ROLE " + role + " LOGIN");
    EXPECT_EQ(bxadm({"create", "M", "--default", "--store", cluster.uri("postgres")}).status, 0);
    const auto owner = as("postgres");
    owner->words("create BEFORE");
    owner->words("create GOES");
    for (const std::string& role : kRoles)
      EXPECT_EQ(bxadm({"grant", "M", role + "_role", "--to", role.substr(2)}).status, 1)
          << "no role";
    for (const std::string& role : kRoles)
      EXPECT_EQ(bxadm({"grant", "M", role, "--to", role.substr(2)}).status, 0);
    owner->words("create AFTER");
    for (const char* words : {"put BEFORE 1", "put AFTER 1"}) owner->words(words);
  }

  Result bxadm(std::vector<std::string> words) const {
    words.insert(words.begin(), {binDir() + "/bxadm", "manager"});
    return Process(std::move(words)).environment("BXM_HOME", home.path().string()).run();
  }
  /// A program that works as a role.
  std::unique_ptr<Peer> as(const std::string& role) const {
    writeFile(home / "bxclient.ini",
              "[managers]\ndefault = M\nM = " + cluster.uri("postgres", role) + "\n");
    auto peer = std::make_unique<Peer>(
        home.path().string(), faults::Environment{{"LD_PRELOAD", libDir() + "/libbxic_r.so"}});
    peer->words("connect");
    writeFile(home / "bxclient.ini",
              "[managers]\ndefault = M\nM = " + cluster.uri("postgres") + "\n");
    return peer;
  }

  static inline const std::vector<std::string> kRoles = {"m_put", "m_get", "m_browse", "m_admin"};
  PostgresCluster cluster;
  TempFolder home;
};

TEST_F(Rights, AreWhatARoleWasGrantedAndNoMore) {
  const std::map<std::string, std::string> needed = {{"put Q 2", "m_put"},
                                                     {"browse Q", "m_browse m_get"},
                                                     {"get Q", "m_get"},
                                                     {"create NEW", "m_admin"},
                                                     {"delete GOES", "m_admin"}};
  for (const std::string& role : kRoles) {
    const auto peer = as(role);
    for (const auto& [words, roles] : needed)
      for (const char* queue : {"BEFORE", "AFTER"}) {
        std::string said = words;
        if (const auto at = said.find(" Q"); at != std::string::npos)
          said.replace(at + 1, 1, queue);
        else if (queue == std::string("AFTER"))
          continue;
        const auto answer = peer->ask(said);
        if (roles.find(role) != std::string::npos)
          EXPECT_TRUE(answer->starts_with("0 0")) << role << ": " << said << ": " << *answer;
        else
          EXPECT_EQ(answer, "2 2035") << role << ": " << said;
      }
    EXPECT_TRUE(peer->ask("depth AFTER")->starts_with("0 0")) << role;
  }
}

TEST_F(Rights, HoldForWhoeverUsesTheTablesToo) {
  const std::string path = "SET search_path = \"bxm_M\"; ";
  const auto tries = [&](const std::string& role, const std::string& statement) {
    return Process({PostgresCluster::kPrograms + "psql", cluster.uri("postgres", role), "-XAtq",
                    "-c", path + statement})
        .run()
        .status;
  };
  for (const char* harm :
       {"SELECT stored FROM messages_1_0", "SELECT * FROM messages_of('BEFORE')",
        "DELETE FROM messages_1_0", "UPDATE messages_1_0 SET priority = 9", "TRUNCATE messages_1_0",
        "DROP TABLE messages_1_0", "SELECT * FROM messages_1_0 FOR UPDATE", "DELETE FROM queue",
        "SELECT create_queue('X', '', 1, 1, 1)", "SELECT delete_queue(1)", "DELETE FROM segment",
        "INSERT INTO floor VALUES (1, 1, 0, 99)", "SELECT nextval('returned_1')",
        "SELECT grant_access('m_put', 'get')", "INSERT INTO access VALUES ('m_put', 'get')",
        "UPDATE manager SET format = 2", "SELECT free_segment(1, 1)"})
    EXPECT_NE(tries("m_put", harm), 0) << harm;
  EXPECT_EQ(tries("m_put", "SELECT name, depth FROM queues"), 0);
  EXPECT_EQ(cluster.psql("postgres", "SELECT name, depth FROM \"bxm_M\".queues").out,
            "AFTER|1\nBEFORE|1\nGOES|0\n");
  EXPECT_EQ(tries("m_browse", "SELECT * FROM messages_of('BEFORE')"), 0);
  EXPECT_EQ(bxadm({"grant", "M", "m_browse", "--to", "none"}).status, 0);
  EXPECT_NE(tries("m_browse", "SELECT * FROM messages_of('BEFORE')"), 0);
}

} // namespace
