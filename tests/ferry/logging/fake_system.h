#pragma once

#include "ferry/logging/log_system.h"

#include <atomic>

/// A clock that the test turns by hand, and file operations that fail on demand. In
/// force while it lives.
class FakeSystem : public CLogSystem {
public:
  FakeSystem() { Replace_v(this); }
  ~FakeSystem() override { Replace_v(nullptr); }

  int64_t Now_n() override { return m_now += m_step; }
  FILE* Open_pob(const std::string& sPath, const char* pMode) override {
    return m_openFails ? nullptr : CLogSystem::Open_pob(sPath, pMode);
  }
  int Stat_n(const std::string& sPath, struct stat& obStat) override {
    ++m_stats;
    return CLogSystem::Stat_n(sPath, obStat);
  }
  int Rename_n(const std::string& sFrom, const std::string& sTo) override {
    return m_renameFails ? -1 : CLogSystem::Rename_n(sFrom, sTo);
  }

  void passMinutes(double minutes) { m_now += static_cast<int64_t>(minutes * 60000); }

  std::atomic<int64_t> m_now = 1'700'000'000'000;
  int64_t m_step = 0; // that each look at the clock takes
  std::atomic<int> m_stats = 0;
  bool m_openFails = false;
  bool m_renameFails = false;
};
