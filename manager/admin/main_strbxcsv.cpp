#include "manager/admin/program.h"
#include "manager/engine/administration.h"

#include <cstdio>

/// Starts a manager's command server.
int main(int count, char** values) {
  return bxm::admin::runProgram(
      "strbxcsv", "Usage:\n strbxcsv [NAME]\n", count, values, [](auto& arguments) {
        const std::string name = arguments.empty() ? "" : arguments.takeName();
        arguments.expectEnd();
        bxm::switchCommandServer(name, true);
        std::printf("Command server started.\n");
        return 0;
      });
}
