#include "ferry/logging/log_system.h"

#include <atomic>
#include <chrono>
#include <unistd.h>

namespace {

std::atomic<CLogSystem*> g_pobReplacement = nullptr;

} // namespace

int64_t CLogSystem::Now_n() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

FILE* CLogSystem::Open_pob(const std::string& sPath, const char* pMode) {
  return std::fopen(sPath.c_str(), pMode);
}

int CLogSystem::Stat_n(const std::string& sPath, struct stat& obStat) {
  return ::stat(sPath.c_str(), &obStat);
}

int CLogSystem::Rename_n(const std::string& sFrom, const std::string& sTo) {
  return std::rename(sFrom.c_str(), sTo.c_str());
}

int CLogSystem::Unlink_n(const std::string& sPath) { return ::unlink(sPath.c_str()); }

CLogSystem& CLogSystem::Get_rob() {
  static CLogSystem obReal;
  CLogSystem* pobReplacement = g_pobReplacement.load();
  return pobReplacement ? *pobReplacement : obReal;
}

void CLogSystem::Replace_v(CLogSystem* pobSystem) { g_pobReplacement = pobSystem; }
