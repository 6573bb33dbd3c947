#include "manager/admin/commands.h"
#include "manager/admin/program.h"
#include "manager/admin/report.h"
#include "manager/engine/queue_walk.h"
#include "manager/engine/transfer.h"
#include "manager/store/catalog.h"
#include "manager/view/message_json.h"

#include <cstdio>
#include <fmt/format.h>
#include <iostream>

namespace bxm::admin {

namespace {

struct Place {
  std::string manager, queue;
};

void declare(CLI::App& command, Place& place) {
  addWord(command, "QUEUE", place.queue, "Which one");
  addManagerOption(command, place.manager);
}

int exportQueue(const Place& place) {
  const auto session = catalog().connect(place.manager);
  QueueWalk walk(*session, queueNamed(*session, place.queue));
  while (walk.next()) {
    const std::string line = jsonOf(walk.priority(), walk.stored()).dump() + "\n";
    if (std::fwrite(line.data(), 1, line.size(), stdout) != line.size())
      return 1; // told at the end
  }
  if (std::fflush(stdout) != 0) return 1;
  fmt::print(stderr, "{} exported.\n", counted(walk.passed(), "message"));
  if (walk.missedSome())
    fmt::print(stderr,
               "Not exported: messages that somebody has taken, that are not yet committed, "
               "or damaged (bxadm check).\n");
  return 0;
}

int importQueue(const Place& place) {
  const auto session = catalog().connect(place.manager);
  Import import(*session, place.queue);
  std::uint64_t count = 0, lineNumber = 0;
  for (std::string line; std::getline(std::cin, line);) {
    ++lineNumber;
    if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
    try {
      const JsonMessage message = messageOf(line);
      import.put(message.priority, message.stored);
    } catch (const std::exception& error) {
      throw std::runtime_error(
          fmt::format("line {}: {}; nothing was imported", lineNumber, error.what()));
    }
    ++count;
  }
  if (std::ferror(stdin))
    throw std::runtime_error("cannot read standard input; nothing was imported");
  import.commit();
  fmt::print("{} imported to queue {}.\n", counted(count, "message"), place.queue);
  return 0;
}

} // namespace

void addExportCommands(CLI::App& program) {
  addCommand(program, "export",
             "Write all messages of a queue to standard output, a JSON object a line; they stay",
             declare, exportQueue);
  addCommand(program, "import",
             "Put what export has written onto a queue, all of it or, where that fails, nothing",
             declare, importQueue);
}

} // namespace bxm::admin
