#pragma once

/// Named places at which a test can end the process as SIGKILL would. BXM_KILL_AT=name[:n] ends it
/// at the n-th time that the place is reached, BXM_STOP_AT stops it there until SIGCONT. Compiled
/// in only where FERRY_KILL_POINTS is set.
#ifdef FERRY_KILL_POINTS
namespace bxm {
void killPoint(const char* name);
}
#define BXM_KILL_POINT(name) ::bxm::killPoint(name)
#else
#define BXM_KILL_POINT(name) static_cast<void>(0)
#endif
