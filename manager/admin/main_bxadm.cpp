#include "manager/admin/program.h"
#include "manager/engine/managers.h"

#include <cstdio>

namespace {

using bxm::admin::Arguments;

constexpr const char* kUsage = "Usage:\n"
                               " bxadm manager create NAME [--default]\n"
                               " bxadm manager list\n"
                               " bxadm manager delete NAME\n"
                               " bxadm manager alter NAME --sync full|batch\n";

int create(Arguments& arguments) {
  const bool makeDefault = arguments.takeFlag("--default");
  const std::string name = arguments.takeName();
  arguments.expectEnd();
  bxm::createManager(name, makeDefault);
  std::printf("Queue manager %s created.\n", name.c_str());
  return 0;
}

int list(Arguments& arguments) {
  arguments.expectEnd();
  for (const bxm::ManagerInfo& manager : bxm::listManagers())
    std::printf("%s%s\n", manager.name.c_str(), manager.isDefault ? " (default)" : "");
  return 0;
}

int remove(Arguments& arguments) {
  const std::string name = arguments.takeName();
  arguments.expectEnd();
  bxm::deleteManager(name);
  std::printf("Queue manager %s deleted.\n", name.c_str());
  return 0;
}

int alter(Arguments& arguments) {
  const std::string sync = arguments.takeValue("--sync");
  const std::string name = arguments.takeName();
  arguments.expectEnd();
  if (sync != "full" && sync != "batch") throw bxm::admin::UsageError("--sync takes full or batch");
  bxm::setManagerSync(name, sync == "full");
  std::printf("Queue manager %s altered: sync %s.\n", name.c_str(), sync.c_str());
  return 0;
}

int run(Arguments& arguments) {
  if (arguments.takeWord() != "manager")
    throw bxm::admin::UsageError("the first word is 'manager'");
  const std::string verb = arguments.takeWord();
  if (verb == "create") return create(arguments);
  if (verb == "list") return list(arguments);
  if (verb == "delete") return remove(arguments);
  if (verb == "alter") return alter(arguments);
  throw bxm::admin::UsageError("unknown command '" + verb + "'");
}

} // namespace

int main(int count, char** values) {
  return bxm::admin::runProgram("bxadm", kUsage, count, values, run);
}
