#include "manager/base/home_folder.h"

#include "bx/bx.h"
#include "manager/base/failure.h"

#include <cstdlib>
#include <unistd.h>

namespace bxm {

std::string homeFolder() {
  auto variable = [](const char* name) -> std::string {
    const char* value = std::getenv(name);
    return value ? value : "";
  };
  if (const std::string home = variable("BXM_HOME"); !home.empty()) return home;
  if (::geteuid() == 0) return "/var/lib/bxm";
  if (const std::string state = variable("XDG_STATE_HOME"); !state.empty()) return state + "/bxm";
  if (const std::string home = variable("HOME"); !home.empty()) return home + "/.local/state/bxm";
  throw Failure(BXRC_Q_MGR_NOT_AVAILABLE,
                "no folder for queue managers: neither BXM_HOME nor HOME is set");
}

} // namespace bxm
