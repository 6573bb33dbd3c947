#include "manager/admin/program.h"
#include "manager/engine/administration.h"

#include <cstdio>

/// Stops a manager's command server.
int main(int count, char** values) {
  CLI::App program("Stops a queue manager's command server.", "endbxcsv");
  std::string manager;
  bxm::admin::addWord(program, "MANAGER", manager, "Another one than the default", true);
  program.final_callback([&manager] {
    bxm::switchCommandServer(manager, false);
    std::puts("Command server stopped.");
  });
  return bxm::admin::runProgram(program, count, values);
}
