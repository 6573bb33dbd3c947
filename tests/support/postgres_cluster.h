#pragma once

#include "tests/support/process.h"

namespace support {

/// A database server of the test's own, in a temporary folder and on a socket there. It does not
/// run as root: that it refuses.
class PostgresCluster {
public:
  static inline const std::string kPrograms = "/usr/lib/postgresql/15/bin/";

  explicit PostgresCluster(std::vector<std::string> settings = {"fsync=off"})
      : m_settings(std::move(settings)) {
    std::filesystem::permissions(m_folder.path(), std::filesystem::perms(0755));
    std::filesystem::create_directory(m_folder / "data");
    if (::geteuid() == 0) run({"/bin/chown", "postgres", m_folder / "data"});
    run(asServer({kPrograms + "initdb", "-D", m_folder / "data", "-U", "postgres", "-A", "trust",
                  "-N", "-E", "UTF8", "--locale=C.UTF-8"}));
    start();
  }
  ~PostgresCluster() { stop(SIGQUIT); }

  void start() {
    std::vector<std::string> program{kPrograms + "postgres", "-D", m_folder / "data",  "-k",
                                     m_folder / "data",      "-c", "listen_addresses="};
    for (const std::string& setting : m_settings) program.insert(program.end(), {"-c", setting});
    m_server = std::make_unique<Process>(asServer(std::move(program)));
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

  Result psql(const std::string& database, const std::string& statement) const {
    return Process({kPrograms + "psql", uri(database), "-XAtqc", statement}).run();
  }
  /// Its socket's folder, and its files'.
  std::string folder() const { return m_folder / "data"; }
  std::string uri(const std::string& database, const std::string& user = "postgres") const {
    return "postgresql://" + user + "@/" + database + "?host=" + folder();
  }

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

  TempFolder m_folder;
  std::vector<std::string> m_settings;
  std::unique_ptr<Process> m_server;
};

} // namespace support
