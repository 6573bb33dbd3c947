#include "manager/base/kill_point.h"

#ifdef FERRY_KILL_POINTS

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <string>

namespace bxm {

namespace {

struct Target {
  std::string name;
  std::atomic<int> left{1};
  explicit Target(const char* variable) {
    const char* wanted = std::getenv(variable);
    if (!wanted) return;
    name = wanted;
    const auto colon = name.find(':');
    if (colon == std::string::npos) return;
    left = std::atoi(name.c_str() + colon + 1);
    name.resize(colon);
  }
};

} // namespace

void killPoint(const char* name) {
  static Target killed("BXM_KILL_AT"), stopped("BXM_STOP_AT");
  if (killed.name == name && --killed.left == 0) std::raise(SIGKILL);
  if (stopped.name == name && --stopped.left == 0) std::raise(SIGSTOP);
}

} // namespace bxm

#endif
