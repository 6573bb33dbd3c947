#pragma once

#include "manager/console/http_server.h"

#include <string>
#include <vector>

namespace bxm::console {

struct Options {
  Address address;
  std::vector<std::string> managers; ///< empty: all
  bool allowChanges = false;
  std::string tokenFile; ///< empty: everybody may look
};

/// Serves the console until SIGTERM, SIGINT or SIGHUP. Throws std::runtime_error where it cannot
/// begin. Does not return where a look at a manager still hangs: it ends the process with status 0.
int serve(const Options& options);

} // namespace bxm::console
