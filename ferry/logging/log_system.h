#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <sys/stat.h>

/// The clock and the file operations that logging needs, so that a test can turn the clock by hand
/// and make an operation fail. The base class is the real thing.
///
/// File operations return what the C library's functions return. Every operation may be called by
/// several threads at once.
class CLogSystem {
public:
  virtual ~CLogSystem() = default;

  /// Milliseconds since 1970 in UTC.
  virtual int64_t Now_n();
  virtual FILE* Open_pob(const std::string& sPath, const char* pMode);
  virtual int Stat_n(const std::string& sPath, struct stat& obStat);
  virtual int Rename_n(const std::string& sFrom, const std::string& sTo);
  virtual int Unlink_n(const std::string& sPath);

  /// The one in force for the process.
  static CLogSystem& Get_rob();
  /// Puts another one in force, null the real one. It is not owned and must stay until it is
  /// replaced and no thread logs any more.
  static void Replace_v(CLogSystem* pobSystem);
};
