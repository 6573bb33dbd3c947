#include "tests/manager/contract/binding.h"
#include "tests/support/postgres_cluster.h"

#include <cstdlib>

namespace contract {

namespace {

support::PostgresCluster& cluster() {
  static support::PostgresCluster one({"fsync=off", "max_connections=1100"});
  return one;
}

/// A database, and the file that says where it is.
class PostgresHome : public Home {
public:
  PostgresHome() {
    ::setenv("BXM_HOME", m_folder.path().c_str(), 1);
    cluster().psql("postgres", "CREATE DATABASE " + m_database);
    tell("default = DEFAULT\nDEFAULT = " + m_uri);
  }
  ~PostgresHome() override {
    cluster().psql("postgres", "DROP DATABASE " + m_database + " WITH (FORCE)");
  }

  void createManager(const std::string& name) override {
    run({support::binDir() + "/bxadm", "manager", "create", name, "--store", m_uri});
  }
  void switchCommandServer(bool runs) override {
    run({support::binDir() + (runs ? "/strbxcsv" : "/endbxcsv")});
  }
  void breakManager(const std::string& name) override {
    tell(name + " = " + cluster().uri("nowhere"));
  }

private:
  void tell(const std::string& lines) const {
    support::writeFile(m_folder / "bxclient.ini", "[managers]\n" + lines + "\n");
  }
  static void run(std::vector<std::string> program) {
    const auto result = support::Process(std::move(program)).run();
    if (result.status != 0) throw std::runtime_error(result.err);
  }
  static std::string nextName() {
    static int number = 0;
    return "home_" + std::to_string(++number);
  }

  support::TempFolder m_folder;
  const std::string m_database = nextName(), m_uri = cluster().uri(m_database);
};

} // namespace

Binding postgresBinding() {
  return {"postgres", support::libDir() + "/libbxic_r.so",
          [] { return std::make_unique<PostgresHome>(); }};
}

} // namespace contract
