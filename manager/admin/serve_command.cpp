#include "manager/admin/commands.h"
#include "manager/admin/program.h"
#include "manager/console/console.h"

namespace bxm::admin {

namespace {

struct Serve {
  std::string listen = "127.0.0.1:8733", tokenFile;
  std::vector<std::string> managers;
  bool allowChanges = false;
};

void declare(CLI::App& command, Serve& serve) {
  command
      .add_option("--listen", serve.listen,
                  "Where it listens; port 0 takes a free one, anything but a loopback address "
                  "needs a token")
      ->type_name("ADDRESS")
      ->capture_default_str();
  command
      .add_option("-m,--manager", serve.managers,
                  "Only this queue manager; may be given several times")
      ->type_name("MANAGER")
      ->allow_extra_args(false);
  command.add_flag("--allow-changes", serve.allowChanges,
                   "Queues may be made, altered, emptied and deleted, messages moved and put");
  command
      .add_option("--token-file", serve.tokenFile,
                  "Only who knows the token in this file sees anything")
      ->type_name("FILE");
}

int serve(const Serve& serve) {
  const auto address = console::addressOf(serve.listen);
  if (!address)
    throw CLI::ValidationError("'" + serve.listen + "' is no address and port like 127.0.0.1:8733");
  if (!address->isLoopback() && serve.tokenFile.empty())
    throw CLI::ValidationError("--token-file is needed where others can reach it");
  return console::serve({*address, serve.managers, serve.allowChanges, serve.tokenFile});
}

} // namespace

void addServeCommand(CLI::App& program) {
  addCommand(program, "serve",
             "Show all queues in the browser, and tell about them as JSON and as metrics, until "
             "it is ended by a signal",
             declare, serve);
}

} // namespace bxm::admin
