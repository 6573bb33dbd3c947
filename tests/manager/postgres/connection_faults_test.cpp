#include "tests/manager/faults/peer.h"
#include "tests/manager/postgres/cutting_proxy.h"
#include "tests/support/postgres_cluster.h"

#include <gtest/gtest.h>
#include <set>

namespace {

using faults::Peer;
using namespace support;
using Names = std::multiset<std::string>;

PostgresCluster& cluster() {
  static PostgresCluster one({"fsync=off", "max_connections=20"});
  return one;
}

/// A manager M in the database, with a queue Q.
class ConnectionFaults : public testing::Test {
protected:
  ConnectionFaults() {
    cluster().psql("postgres", "DROP SCHEMA IF EXISTS \"bxm_M\" CASCADE");
    EXPECT_EQ(run("bxadm", {"manager", "create", "M", "--default", "--store", direct}).status, 0);
    peer()->words("create Q");
  }
  void place(const std::string& uri) const {
    writeFile(home / "bxclient.ini", "[managers]\ndefault = M\nM = " + uri + "\n");
  }
  Result run(const std::string& name, std::vector<std::string> words,
             const std::string& input = "") const {
    words.insert(words.begin(), binDir() + (name == "ferry" ? "/../client/bin/" : "/") + name);
    Process program(std::move(words));
    program.libraries(libraries)
        .environment("BXM_HOME", home.path().string())
        .environment("PGPASSFILE", home / "pgpass");
    return program.input(input).run();
  }
  std::unique_ptr<Peer> peer() const {
    auto made = std::make_unique<Peer>(
        home.path().string(), faults::Environment{{"LD_PRELOAD", libDir() + "/libbxic_r.so"}},
        home / "errors");
    made->words("connect");
    return made;
  }

  const std::string direct = cluster().uri("postgres");
  const std::string libraries = libDir() + "/../client/lib";
  TempFolder home;
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

TEST_F(ConnectionFaults, ThatKeepFromConnectingAreToldInTheDatabasesWords) {
  cluster().psql("postgres", "CREATE ROLE nobody LOGIN; CREATE ROLE few LOGIN CONNECTION LIMIT 0;"
                             "CREATE ROLE guarded LOGIN PASSWORD 'right'; CREATE ROLE off NOLOGIN");
  const std::string rules = cluster().data() + "/pg_hba.conf";
  writeFile(rules, "local all guarded scram-sha-256\n" + readFile(rules));
  cluster().psql("postgres", "SELECT pg_reload_conf()");
  writeFile(home / "pgpass", "*:*:*:guarded:wrong\n");
  std::filesystem::permissions(home / "pgpass", std::filesystem::perms(0600));
  struct Row {
    std::string place, reason, text;
  };
  for (const Row& row : {
           Row{"postgresql:///postgres?host=" + home.path().string(), "2059", "No such file"},
           Row{cluster().uri("nowhere"), "2059", "database \"nowhere\" does not exist"},
           Row{cluster().uri("postgres", "stranger"), "2035", "role \"stranger\" does not exist"},
           Row{cluster().uri("postgres", "off"), "2035", "not permitted to log in"},
           Row{cluster().uri("postgres", "guarded"), "2035", "password authentication failed"},
           Row{cluster().uri("postgres", "nobody"), "2035", "no right to use queue manager M"},
           Row{cluster().uri("postgres", "few"), "2025", "too many connections"},
       }) {
    place(row.place);
    const Result sent = run("ferry", {"-f", "Q"}, "one\n");
    EXPECT_NE(sent.err.find("reason code " + row.reason), std::string::npos) << sent.err;
    for (const Result& result : {sent, run("bxadm", {"queue", "list", "-m", "M"})})
      EXPECT_TRUE(result.status != 0 && result.err.find(row.text) != std::string::npos)
          << row.place << result.err;
  }
  place(direct);
  std::vector<std::unique_ptr<Peer>> all;
  EXPECT_THROW(for (;;) all.push_back(peer()), std::runtime_error);
  EXPECT_NE(readFile(home / "errors").find("too many clients"), std::string::npos);
}

/// As it is where a table cannot grow: what is there can be had.
TEST_F(ConnectionFaults, OfAFullDiskKeepNothingAndLoseNothing) {
  const std::string path = "SET search_path = \"bxm_M\"; ";
  EXPECT_EQ(run("ferry", {"-f", "Q"}, "1\n2\n").status, 0);
  cluster().psql("postgres",
                 path +
                     "CREATE FUNCTION full_disk() RETURNS trigger LANGUAGE plpgsql AS "
                     "$$ BEGIN RAISE 'no space left' USING ERRCODE = 'disk_full'; END $$;"
                     "CREATE TRIGGER t BEFORE INSERT ON messages_1_0 EXECUTE FUNCTION full_disk();"
                     "CREATE TRIGGER t BEFORE INSERT ON floor EXECUTE FUNCTION full_disk()");
  const Result refused = run("ferry", {"-f", "Q"}, "3\n4\n");
  EXPECT_NE((refused.out + refused.err).find("2056"), std::string::npos);
  EXPECT_NE(refused.err.find("queue manager M: ERROR:  no space left"), std::string::npos);
  EXPECT_EQ(run("ferry", {"-r", "Q", "-c", "1"}).out, "1\n");
  cluster().psql("postgres", path + "DROP FUNCTION full_disk CASCADE");
  EXPECT_EQ(run("ferry", {"-f", "Q"}, "3\n").status, 0);
  EXPECT_EQ(run("ferry", {"-r", "Q"}).out, "2\n3\n");
}

/// Scripts go on with what does not count yet.
TEST_F(ConnectionFaults, OfARestartedServerLoseAndDoubleNothing) {
  Process scripts({"/bin/sh", "-c", R"(
    (n=0; until seq $n 5999 | $FERRY -f Q >>said 2>sent; do
       c=$(sed -n 's/.*the first \([0-9]*\) records.*/\1/p' sent | head -1); n=$((n + ${c:-0}))
     done; touch loaded) &
    until [ -e loaded ] && $FERRY -r Q >part 2>>errors && ! [ -s part ]; do
      [ -e loaded ] || $FERRY -r Q >part 2>>errors; grep -Ex '[0-9]+' part >>got; : >part
    done
    echo $(sort -u got | wc -l) $(sort got | uniq -d | wc -l) $(grep -c 'not known' errors))"});
  scripts.libraries(libraries)
      .in(home.path().string())
      .environment("BXM_HOME", home.path().string());
  scripts.environment("FERRY", std::filesystem::absolute(binDir() + "/../client/bin/ferry"))
      .start();
  for (const int signal : {SIGINT, SIGQUIT, SIGINT, SIGQUIT}) {
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    cluster().stop(signal);
    cluster().start();
  }
  const auto counts = faults::split(scripts.wait().out);
  ASSERT_EQ(counts.size(), 3U) << ::testing::PrintToString(counts);
  EXPECT_EQ(counts[0], "6000");
  EXPECT_LE(std::stoi(counts[1]), std::stoi(counts[2])) << "more were doubled than are unknown";
}

} // namespace
