#include "manager/admin/commands.h"
#include "manager/admin/program.h"
#include "manager/admin/report.h"
#include "manager/engine/administration.h"

#include <cstdio>
#include <fmt/format.h>

namespace bxm::admin {

namespace {

void printLines(const std::vector<std::string>& lines) {
  for (const std::string& line : lines) std::puts(printable(line).c_str());
}

void addFolder(CLI::App& command, std::string& folder, const std::string& what) {
  addWord(command, "FOLDER", folder, what)->check([](const std::string& path) {
    return path.empty() ? std::string("a folder has a name") : std::string();
  });
}

struct Check {
  std::string manager;
  bool json = false;
};

void declareCheck(CLI::App& command, Check& check) {
  addWord(command, "MANAGER", check.manager, "Another one than the default", true);
  addJsonFlag(command, check.json);
}

int check(const Check& check) {
  const ManagerFindings found = checkManager(check.manager);
  if (check.json) {
    reportOne({{"log_files", found.logFiles},
               {"queues", found.queues},
               {"messages", found.messages},
               {"damages", found.damages}},
              true);
  } else {
    printLines(found.damages);
    fmt::print("{}, {}, {}, {}.\n", counted(found.logFiles, "log file"),
               counted(found.queues, "queue"), counted(found.messages, "message"),
               counted(found.damages.size(), "damage"));
  }
  return found.damages.empty() ? 0 : 1;
}

struct Repair {
  std::string manager;
};

void declareRepair(CLI::App& command, Repair& repair) {
  addWord(command, "MANAGER", repair.manager, "Which one; nobody may use it meanwhile");
}

int repair(const Repair& repair) {
  const ManagerRepair repaired = repairManager(repair.manager);
  printLines(repaired.changes);
  if (!repaired.setAside.empty())
    fmt::print("{} damaged pieces set aside in {}.\n", repaired.setAsideCount, repaired.setAside);
  fmt::print("Queue manager {} repaired: {}.\n", repair.manager,
             counted(repaired.messages, "message"));
  return 0;
}

struct Backup {
  std::string manager, target;
};

void declareBackup(CLI::App& command, Backup& backup) {
  addFolder(command, backup.target, "Where the copy is made; must not exist");
  addManagerOption(command, backup.manager);
}

int backUp(const Backup& backup) {
  const auto damages = backUpManager(backup.manager, backup.target);
  printLines(damages);
  fmt::print("Backup {} written.\n", backup.target);
  return damages.empty() ? 0 : 1;
}

struct Restore {
  std::string source, manager;
};

void declareRestore(CLI::App& command, Restore& restore) {
  addFolder(command, restore.source, "What backup has written");
  addWord(command, "NAME", restore.manager, "The manager that is made of it");
}

int restore(const Restore& restore) {
  restoreManager(restore.source, restore.manager);
  fmt::print("Queue manager {} restored from {}.\n", restore.manager, restore.source);
  return 0;
}

} // namespace

void addMaintenanceCommands(CLI::App& program) {
  addCommand(program, "check",
             "Look for damage, also while a manager is in use; status 1 when there is any",
             declareCheck, check);
  addCommand(program, "repair",
             "Set aside what is damaged in a manager, so that the rest is served", declareRepair,
             repair);
  addCommand(program, "backup", "Copy a manager into a folder, also while it is in use",
             declareBackup, backUp);
  addCommand(program, "restore", "Make a manager of a backup", declareRestore, restore);
}

} // namespace bxm::admin
