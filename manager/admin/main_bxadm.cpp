#include "manager/admin/maintenance.h"
#include "manager/admin/program.h"
#include "manager/engine/administration.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>

namespace {

using bxm::admin::Arguments;

constexpr const char* kUsage =
    "Usage:\n"
    " bxadm manager create NAME [--default] [--store postgresql://...]\n"
    " bxadm manager list\n"
    " bxadm manager delete NAME\n"
    " bxadm manager alter NAME --sync full|batch\n"
    " bxadm manager grant NAME ROLE --to put|get|browse|admin|none\n"
    " bxadm manager check [NAME]\n"
    " bxadm manager repair NAME\n"
    " bxadm manager backup TARGET [-m MANAGER]\n"
    " bxadm manager restore SOURCE NAME\n"
    " bxadm manager copy FROM TO (all queues; FROM stays as it is)\n"
    " bxadm queue create NAME [-m MANAGER] [--max-depth N] [--max-length BYTES]\n"
    " bxadm queue list [-m MANAGER]\n"
    " bxadm queue delete NAME [-m MANAGER]\n";

int createManager(Arguments& arguments) {
  const bool makeDefault = arguments.takeFlag("--default");
  const auto store = arguments.takeOptionalValue("--store");
  if (store && store->empty()) throw bxm::admin::UsageError("--store takes postgresql://...");
  const std::string name = arguments.takeName();
  arguments.expectEnd();
  bxm::createManager(name, makeDefault, store.value_or(""));
  std::printf("Queue manager %s created.\n", name.c_str());
  return 0;
}

int listManagers(Arguments& arguments) {
  arguments.expectEnd();
  for (const bxm::ManagerInfo& manager : bxm::listManagers())
    std::printf("%s%s\n", manager.name.c_str(), manager.isDefault ? " (default)" : "");
  return 0;
}

int deleteManager(Arguments& arguments) {
  const std::string name = arguments.takeName();
  arguments.expectEnd();
  bxm::deleteManager(name);
  std::printf("Queue manager %s deleted.\n", name.c_str());
  return 0;
}

int alterManager(Arguments& arguments) {
  const std::string sync = arguments.takeValue("--sync");
  const std::string name = arguments.takeName();
  arguments.expectEnd();
  if (sync != "full" && sync != "batch") throw bxm::admin::UsageError("--sync takes full or batch");
  bxm::setManagerSync(name, sync == "full");
  std::printf("Queue manager %s altered: sync %s.\n", name.c_str(), sync.c_str());
  return 0;
}

int grantAccess(Arguments& arguments) {
  const std::string may = arguments.takeValue("--to");
  const std::string name = arguments.takeName(), role = arguments.takeName();
  arguments.expectEnd();
  constexpr std::array<const char*, 5> kRights = {"put", "get", "browse", "admin", "none"};
  if (std::find(kRights.begin(), kRights.end(), may) == kRights.end())
    throw bxm::admin::UsageError("--to takes put, get, browse, admin or none");
  bxm::grantAccess(name, role, may);
  std::printf("Role %s of queue manager %s: %s.\n", role.c_str(), name.c_str(), may.c_str());
  return 0;
}

std::string managerIn(Arguments& arguments) {
  return arguments.takeOptionalValue("-m").value_or("");
}

BXLONG numberIn(Arguments& arguments, const std::string& option) {
  const auto text = arguments.takeOptionalValue(option);
  if (!text) return 0;
  BXLONG number = 0;
  const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), number);
  if (error != std::errc() || end != text->data() + text->size() || number < 1)
    throw bxm::admin::UsageError(option + " takes a number above 0");
  return number;
}

int createQueue(Arguments& arguments) {
  const std::string manager = managerIn(arguments);
  bxm::QueueInfo queue;
  queue.maxDepth = numberIn(arguments, "--max-depth");
  queue.maxMessageLength = numberIn(arguments, "--max-length");
  queue.name = arguments.takeName();
  arguments.expectEnd();
  bxm::createLocalQueue(manager, queue);
  std::printf("Queue %s created.\n", queue.name.c_str());
  return 0;
}

int listQueues(Arguments& arguments) {
  const std::string manager = managerIn(arguments);
  arguments.expectEnd();
  for (const bxm::QueueInfo& queue : bxm::listLocalQueues(manager))
    std::printf("%s depth %llu of %d, messages up to %d bytes\n", queue.name.c_str(),
                static_cast<unsigned long long>(queue.depth), queue.maxDepth,
                queue.maxMessageLength);
  return 0;
}

int deleteQueue(Arguments& arguments) {
  const std::string manager = managerIn(arguments);
  const std::string name = arguments.takeName();
  arguments.expectEnd();
  bxm::deleteLocalQueue(manager, name);
  std::printf("Queue %s deleted.\n", name.c_str());
  return 0;
}

struct Command {
  const char* object;
  const char* verb;
  int (*run)(Arguments&);
};

constexpr Command kCommands[] = {
    {"manager", "create", createManager},
    {"manager", "list", listManagers},
    {"manager", "delete", deleteManager},
    {"manager", "alter", alterManager},
    {"manager", "grant", grantAccess},
    {"manager", "check", bxm::admin::checkManager},
    {"manager", "repair", bxm::admin::repairManager},
    {"manager", "backup", bxm::admin::backUpManager},
    {"manager", "restore", bxm::admin::restoreManager},
    {"manager", "copy", bxm::admin::copyManager},
    {"queue", "create", createQueue},
    {"queue", "list", listQueues},
    {"queue", "delete", deleteQueue},
};

int run(Arguments& arguments) {
  const std::string object = arguments.takeWord(), verb = arguments.takeWord();
  for (const Command& command : kCommands)
    if (object == command.object && verb == command.verb) return command.run(arguments);
  throw bxm::admin::UsageError("unknown command '" + object + " " + verb + "'");
}

} // namespace

int main(int count, char** values) {
  return bxm::admin::runProgram("bxadm", kUsage, count, values, run);
}
