#include "manager/admin/program.h"
#include "manager/engine/administration.h"

#include <cstdio>

/// Starts a manager's command server.
int main(int count, char** values) {
  CLI::App program("Starts a queue manager's command server.", "strbxcsv");
  std::string manager;
  bxm::admin::addWord(program, "MANAGER", manager, "Another one than the default", true);
  program.final_callback([&manager] {
    bxm::switchCommandServer(manager, true);
    std::puts("Command server started.");
  });
  return bxm::admin::runProgram(program, count, values);
}
