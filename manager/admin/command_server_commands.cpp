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

int turn(const std::string& manager, bool on) {
  switchCommandServer(manager, on);
  std::puts(on ? "Command server started." : "Command server stopped.");
  return 0;
}

int start(const Server& server) { return turn(server.manager, true); }
int stop(const Server& server) { return turn(server.manager, false); }

int status(const Server& server) {
  const bool runs = commandServerRuns(server.manager);
  if (server.json)
    reportOne({{"running", runs}}, true);
  else
    std::puts(runs ? "The command server runs." : "The command server is stopped.");
  return runs ? 0 : 1;
}

} // namespace

int switchCommandServerBy(const char* program, bool on, int count, char** values) {
  CLI::App app(on ? "Starts a queue manager's command server."
                  : "Stops a queue manager's command server.",
               program);
  std::string manager;
  addWord(app, "MANAGER", manager, "Another one than the default", true);
  app.final_callback([&] { turn(manager, on); });
  return runProgram(app, count, values);
}

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
