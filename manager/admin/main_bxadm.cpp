#include "bx/bx.h"
#include "manager/admin/command_reference.h"
#include "manager/admin/commands.h"
#include "manager/admin/program.h"

#define BXM_TEXT(number) #number
#define BXM_VERSION(major, minor, patch) BXM_TEXT(major) "." BXM_TEXT(minor) "." BXM_TEXT(patch)

/// Looks after queue managers and their queues.
int main(int count, char** values) {
  using namespace bxm::admin;
  CLI::App program("Looks after queue managers, their queues and messages.", "bxadm");
  program.set_version_flag(
      "--version", "bxadm " BXM_VERSION(BX_VERSION_MAJOR, BX_VERSION_MINOR, BX_VERSION_PATCH));
  program.require_subcommand(1);
  addManagerCommands(program);
  addQueueCommands(program);
  addMessageCommands(program);
  addExportCommands(program);
  addTopCommand(program);
  addServeCommand(program);
  addMaintenanceCommands(program);
  addCommandServerCommands(program);
  addReferenceCommand(program);
  return runProgram(program, count, values);
}
