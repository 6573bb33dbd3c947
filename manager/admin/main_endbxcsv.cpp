#include "manager/admin/program.h"
#include "manager/engine/administration.h"

#include <cstdio>

/// Stops a manager's command server.
int main(int count, char** values) {
  return bxm::admin::runProgram(
      "endbxcsv", "Usage:\n endbxcsv [NAME]\n", count, values, [](auto& arguments) {
        const std::string name = arguments.empty() ? "" : arguments.takeName();
        arguments.expectEnd();
        bxm::switchCommandServer(name, false);
        std::printf("Command server stopped.\n");
        return 0;
      });
}
