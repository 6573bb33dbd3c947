#include "manager/admin/maintenance.h"

#include "manager/engine/administration.h"
#include "manager/engine/copying.h"

#include <cstdio>

namespace bxm::admin {

namespace {

void printLines(const std::vector<std::string>& lines) {
  for (const std::string& line : lines) std::printf("%s\n", line.c_str());
}

} // namespace

int checkManager(Arguments& arguments) {
  const std::string name = arguments.empty() ? "" : arguments.takeName();
  arguments.expectEnd();
  const ManagerFindings found = bxm::checkManager(name);
  printLines(found.damages);
  std::printf("%llu log files, %llu queues, %llu messages, %zu damages.\n",
              static_cast<unsigned long long>(found.logFiles),
              static_cast<unsigned long long>(found.queues),
              static_cast<unsigned long long>(found.messages), found.damages.size());
  return found.damages.empty() ? 0 : 1;
}

int repairManager(Arguments& arguments) {
  const std::string name = arguments.takeName();
  arguments.expectEnd();
  const ManagerRepair repaired = bxm::repairManager(name);
  printLines(repaired.changes);
  if (!repaired.setAside.empty())
    std::printf("%llu damaged pieces set aside in %s.\n",
                static_cast<unsigned long long>(repaired.setAsideCount), repaired.setAside.c_str());
  std::printf("Queue manager %s repaired: %llu messages.\n", name.c_str(),
              static_cast<unsigned long long>(repaired.messages));
  return 0;
}

int backUpManager(Arguments& arguments) {
  const std::string name = arguments.takeOptionalValue("-m").value_or("");
  const std::string target = arguments.takeName();
  arguments.expectEnd();
  const auto damages = bxm::backUpManager(name, target);
  printLines(damages);
  std::printf("Backup %s written.\n", target.c_str());
  return damages.empty() ? 0 : 1;
}

int restoreManager(Arguments& arguments) {
  const std::string source = arguments.takeName(), name = arguments.takeName();
  arguments.expectEnd();
  bxm::restoreManager(source, name);
  std::printf("Queue manager %s restored from %s.\n", name.c_str(), source.c_str());
  return 0;
}

int copyManager(Arguments& arguments) {
  const std::string from = arguments.takeName(), to = arguments.takeName();
  arguments.expectEnd();
  std::size_t queues = 0;
  unsigned long long messages = 0;
  bxm::copyManager(from, to, [&](const CopiedQueue& copied) {
    ++queues;
    messages += copied.messages;
    std::printf("Queue %s: %llu messages copied, verified.\n", copied.name.c_str(),
                static_cast<unsigned long long>(copied.messages));
    std::fflush(stdout);
  });
  std::printf("Queue manager %s copied to %s: %zu queues, %llu messages.\n", from.c_str(),
              to.c_str(), queues, messages);
  return 0;
}

} // namespace bxm::admin
