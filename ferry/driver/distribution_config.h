#pragma once

#include "ferry/config/parameter_ini_store.h"

#include <cstdint>
#include <string>
#include <vector>

/// The section of the configuration file that a distribution follows. Everything throws
/// VRK_Exception when the file cannot be read.
class CDistributionConfig {
public:
  /// Until when a queue takes records, and what happens when all are full. Re-read in every
  /// saturation pause, so that an operator can change it while a long load runs.
  struct Limits {
    static constexpr uint32_t NONE = 4294967295U;
    uint32_t nMessageCountMax = NONE; // a queue of this depth is full
    uint32_t nFullCountMax = NONE;    // as many full queues in a row call for a pause
    long nFullPause = -1;             // milliseconds
  };

  /// Reads the section of the process's configuration file. It must name a queue.
  explicit CDistributionConfig(const std::string& sSection);

  std::vector<UnicodeString> Queues_a() const;
  Limits Limits_ob() const { return Limits_ob(u"-1"); }
  /// Reads the file again.
  Limits Reread_ob();
  /// How many leading records to skip.
  long SkipCount_n() const { return Integer_n(u"SkipCount", u"-1"); }

private:
  Limits Limits_ob(const char16_t* pDefaultPause) const;
  uint32_t Limit_n(const char16_t* pName) const;
  long Integer_n(const char16_t* pName, const char16_t* pDefault) const;

  const UnicodeString m_sSection;
  CCMEParameterINIStore m_obStore;
};
