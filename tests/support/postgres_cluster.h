#pragma once

#include "tests/support/process.h"

namespace support {

/// A database server of the test's own, in a temporary folder and on a socket there. It does not
/// run as root: that it refuses.
class PostgresCluster {
public:
  static inline const std::string kPrograms = "/usr/lib/postgresql/15/bin/";

  explicit PostgresCluster(const std::vector<std::string>& settings = {"fsync=off"}) {
    run(asServer({kPrograms + "initdb", "-D", data(), "-U", "postgres", "-A", "trust", "-N", "-k",
                  "-E", "UTF8", "--locale=C.UTF-8"}));
    std::ofstream file(data() + "/postgresql.conf", std::ios::app);
    for (const std::string& setting : settings) file << setting << '\n';
    file.close();
    start();
  }
  /// The standby of another one.
  explicit PostgresCluster(const PostgresCluster& primary) {
    run(asServer({kPrograms + "pg_basebackup", "-R", "-N", "-c", "fast", "-D", data(), "-d",
                  primary.uri("postgres")}));
    start();
  }
  ~PostgresCluster() { stop(SIGQUIT); }

  void start() {
    m_server = std::make_unique<Process>(asServer(
        {kPrograms + "postgres", "-D", data(), "-k", folder(), "-c", "listen_addresses="}));
    m_server->start();
    if (!eventually([this] { return psql("postgres", "SELECT 1").status == 0; }))
      throw std::runtime_error("the database server does not start: " + m_server->err());
  }
  void stop(int signal) {
    if (!m_server) return;
    m_server->signal(signal);
    m_server->wait();
    m_server.reset();
  }
  /// As a machine that dies: all of its processes at once.
  void die() {
    const std::string pid = std::to_string(m_server->pid());
    m_server->signal(SIGSTOP); // it begins no new ones
    std::ifstream children("/proc/" + pid + "/task/" + pid + "/children");
    for (pid_t child; children >> child;) ::kill(child, SIGKILL);
    stop(SIGKILL);
  }
  void promote() const {
    if (psql("postgres", "SELECT pg_promote()").out != "t\n")
      throw std::runtime_error("the standby is not promoted");
  }
  /// Comes back as the standby of what was its own standby.
  void follow(const PostgresCluster& primary) {
    primary.psql("postgres", "CHECKPOINT"); // tells of the promotion
    run(asServer({kPrograms + "pg_rewind", "-R", "-N", "-D", data(), "--source-server",
                  primary.uri("postgres")}));
    start();
  }

  Result psql(const std::string& database, const std::string& statement) const {
    return Process({kPrograms + "psql", uri(database), "-XAtqc", statement}).run();
  }
  std::string uri(const std::string& database, const std::string& user = "postgres") const {
    return "postgresql://" + user + "@/" + database + "?host=" + folder();
  }
  std::string folder() const { return m_folder.path().string(); } ///< where its socket is
  std::string data() const { return m_folder / "data"; }

private:
  static std::vector<std::string> asServer(std::vector<std::string> program) {
    if (::geteuid() == 0)
      program.insert(program.begin(), {"/usr/bin/setpriv", "--reuid=postgres", "--regid=postgres",
                                       "--clear-groups", "--pdeathsig=QUIT"});
    return program;
  }
  static void run(std::vector<std::string> program) {
    const Result result = Process(std::move(program)).run();
    if (result.status != 0) throw std::runtime_error(result.err);
  }

  /// The server's own, so that it can make files there.
  struct Folder : TempFolder {
    Folder() {
      std::filesystem::permissions(path(), std::filesystem::perms(0755));
      if (::geteuid() == 0) run({"/bin/chown", "postgres", path()});
    }
  } m_folder;
  std::unique_ptr<Process> m_server;
};

} // namespace support
