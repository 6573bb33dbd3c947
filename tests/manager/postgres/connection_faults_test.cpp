#include "tests/manager/faults/peer.h"
#include "tests/manager/postgres/cutting_proxy.h"
#include "tests/support/postgres_cluster.h"

#include <gtest/gtest.h>
#include <list>
#include <set>

namespace {

using faults::Peer;
using namespace support;
using Names = std::multiset<std::string>;

PostgresCluster& cluster() {
  static PostgresCluster one;
  return one;
}

/// A manager M in the database, with a queue Q.
class ConnectionFaults : public testing::Test {
protected:
  ConnectionFaults() {
    cluster().psql("postgres", "DROP SCHEMA IF EXISTS \"bxm_M\" CASCADE");
    EXPECT_EQ(program("bxadm",
                      {"manager", "create", "M", "--default", "--store", cluster().uri("postgres")})
                  .run()
                  .status,
              0);
    peer()->words("create Q");
  }
  void place(const std::string& uri) const {
    writeFile(home / "bxclient.ini", "[managers]\ndefault = M\nM = " + uri + "\n");
  }
  Process& program(const std::string& name, std::vector<std::string> words) {
    words.insert(words.begin(), binDir() + "/" + name);
    return m_programs.emplace_back(std::move(words)).environment("BXM_HOME", home.path().string());
  }
  std::unique_ptr<Peer> peer() const {
    auto made = std::make_unique<Peer>(
        home.path().string(), faults::Environment{{"LD_PRELOAD", libDir() + "/libbxic_r.so"}},
        home / "errors");
    made->words("connect");
    return made;
  }
  static Names left() {
    Names names;
    for (const std::string& name : faults::split(
             cluster()
                 .psql("postgres", "SET search_path = \"bxm_M\"; SELECT line FROM messages_of('Q')")
                 .out))
      names.insert(name);
    return names;
  }

  TempFolder home;

private:
  std::list<Process> m_programs;
};

/// What is on the queue as far as a program was told. It stops at the first failure.
struct Told {
  Names there, put, got;

  std::string run(Peer& peer, const std::vector<std::string>& script, const std::string& name) {
    for (const std::string& words : script) {
      const bool puts = words.find("put") != std::string::npos;
      const std::string answer = peer.ask(puts ? words + " " + name : words).value_or("it died");
      if (!answer.starts_with("0 0")) return answer;
      const auto said = faults::split(answer);
      if (puts) (words[0] == 's' ? put : there).insert(name);
      if (said.size() > 2 && words[0] == 's') got.insert(said[2]);
      if (said.size() > 2 && words[0] != 's') there.erase(there.find(said[2]));
    }
    there.merge(put);
    for (const std::string& each : got) there.erase(there.find(each));
    return "";
  }
};

TEST_F(ConnectionFaults, AtEveryMessageEndAsTheProgramIsTold) {
  faults::CuttingProxy proxy(cluster().folder());
  const auto feeder = peer();
  place("postgresql://postgres@/postgres?host=" + proxy.folder());
  auto program = peer();
  Names there;
  for (const std::vector<std::string>& script :
       {std::vector<std::string>{"sput Q", "sput Q", "commit"},
        {"sget Q", "commit"},
        {"sget Q", "sput Q", "commit"},
        {"put Q"},
        {"get Q"},
        {"sget Q", "put Q", "get Q", "commit"}}) {
    bool isCut = true;
    for (int at = 0; isCut; ++at) {
      Told told{there, {}, {}};
      told.run(*feeder, {"put Q", "put Q"}, "x");
      program->words("connect");
      told.run(*program, {"put Q", "get Q"}, "y");
      proxy.cutAfter(at);
      const std::string failure = told.run(*program, script, std::to_string(at));
      isCut = proxy.hasCut();
      proxy.cutAfter(-1);
      if (failure == "2 2059") program->ask("backout"); // a second connection could not be made
      program->ask("disconnect");                       // which commits what was not backed out
      // Told that all was done it was done; told of a failure nothing of a unit of work was.
      Names names;
      const bool isThere = eventually(
          [&] {
            const auto browsed = feeder->words("browse Q");
            return (names = Names(browsed.begin(), browsed.end())) == told.there;
          },
          std::chrono::seconds(2));
      const bool isKnown = failure.empty() || failure == "2 2009" || failure == "2 2059";
      EXPECT_TRUE(isThere && isKnown)
          << testing::PrintToString(script) << " cut after message " << at << ": " << failure
          << ": told of " << testing::PrintToString(told.there) << ", there are "
          << testing::PrintToString(names);
      if (failure == "it died") program = peer();
      there = names;
    }
  }
}

/// What the database refuses ends the transaction, but not the connection.
TEST_F(ConnectionFaults, StatementsThatAreRefusedEndTheirUnitOfWorkAndNoOther) {
  const std::string path = "SET search_path = \"bxm_M\"; ";
  cluster().psql("postgres", path +
                                 "CREATE ROLE worker LOGIN; SELECT grant_access('worker', 'put'),"
                                 " grant_access('worker', 'get')");
  peer()->words("create R 10"); // so small that each put looks for room
  peer()->words("put R 1");
  place(cluster().uri("postgres", "worker"));
  const auto worker = peer();
  using Words = std::vector<std::pair<std::string, std::string>>;
  const std::map<std::string, std::vector<std::pair<Words, Words>>> refusals = {
      {"DELETE ON messages_2_0",
       {{{{"sget R", "2 2035"}},
         {{"sget R", "0 0 1"}, {"commit", "2 2003"}, {"commit", "0 0"}, {"depth R", "0 0 1"}}},
        {{{"sget R", "2 2035"}, {"backout", "0 0"}},
         {{"sget R", "0 0 1"}, {"sput R 1", "0 0"}, {"commit", "0 0"}, {"depth R", "0 0 1"}}},
        {{{"get R", "2 2035"}}, {{"get R", "0 0 1"}, {"put R 1", "0 0"}}}}},
      {"EXECUTE ON FUNCTION lock_class",
       {{{{"put R 2", "2 2035"}}, {{"get R", "0 0 1"}, {"put R 1", "0 0"}}},
        {{{"sget R", "0 0 1"}, {"sput R 2", "2 2035"}},
         {{"commit", "2 2003"}, {"depth R", "0 0 1"}, {"sget R", "0 0 1"}}}}},
      {"SELECT ON queue",
       {{{{"browse R", "2 2035"}},
         {{"sget R", "0 0 1"}, {"commit", "2 2003"}, {"browse R", "0 0 1"}}}}}};
  for (const auto& [right, scripts] : refusals)
    for (const auto& [before, after] : scripts)
      for (const bool granted : {false, true}) {
        const std::string words =
            granted ? "GRANT " + right + " TO worker" : "REVOKE " + right + " FROM worker";
        EXPECT_EQ(cluster().psql("postgres", path + words).status, 0);
        for (const auto& [ask, answer] : granted ? after : before)
          EXPECT_EQ(worker->ask(ask), answer) << words << ": " << ask;
      }
}

} // namespace
