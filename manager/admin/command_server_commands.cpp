#include "manager/admin/commands.h"
#include "manager/admin/program.h"
#include "manager/admin/report.h"
#include "manager/engine/administration.h"

#include <cstdio>

namespace bxm::admin {

namespace {

struct Server {
  std::string manager;
  bool json = false;
};

void declare(CLI::App& command, Server& server) { addManagerOption(command, server.manager); }

int start(const Server& server) {
  switchCommandServer(server.manager, true);
  std::puts("Command server started.");
  return 0;
}

int stop(const Server& server) {
  switchCommandServer(server.manager, false);
  std::puts("Command server stopped.");
  return 0;
}

int status(const Server& server) {
  const bool runs = commandServerRuns(server.manager);
  if (server.json)
    reportOne({{"running", runs}}, true);
  else
    std::puts(runs ? "The command server runs." : "The command server is stopped.");
  return runs ? 0 : 1;
}

} // namespace

void addCommandServerCommands(CLI::App& program) {
  CLI::App& family = *program.add_subcommand(
      "command-server", "Let administration commands of programs in, or keep them out");
  family.require_subcommand(1);
  addCommand(family, "start", "Carry out the commands of programs", declare, start);
  addCommand(family, "stop", "Refuse the commands of programs (reason 2322)", declare, stop);
  addCommand<Server>(
      family, "status", "Tell whether it runs; status 1 when it does not",
      [](CLI::App& command, Server& server) {
        declare(command, server);
        addJsonFlag(command, server.json);
      },
      status);
}

} // namespace bxm::admin
