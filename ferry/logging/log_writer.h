#pragma once

#include "ferry/errors/exception.h"
#include "ferry/logging/uriuc.h"
#include "ferry/text/ucss.h"

#include <cstdio>
#include <vector>

/// What a logging call throws when a writer failed.
class VRKLog_Exception : public VRK_Exception {
public:
  using VRK_Exception::VRK_Exception;
  /// Carries over the error stack of another exception.
  explicit VRKLog_Exception(const VRK_Exception& obOther) : VRK_Exception(obOther) {}
  /// What a `catch (...)` has caught, whatever it is.
  static VRKLog_Exception Caught_ob();
};

/// One destination of log messages.
///
/// Start_v is called once, before anything else, and Stop_v once, after everything else. Write_v
/// may be called by several threads at once, and by none while Start_v or Stop_v of any writer of
/// the same logger runs. Whatever they throw stays within the logger, but for the VRKLog_Exception
/// that it makes of a failed Write_v.
///
/// A writer may log from within its calls (what it logs in Start_v and Stop_v may find no writers),
/// and reload the configuration from within Write_v. It must not wait there for another thread that
/// logs or loads: that one may have to wait for this message.
class CLogWriter {
public:
  virtual void Start_v(const URIUC& obDestination) = 0;
  /// Writes one message, never without lines. Throws VRKLog_Exception on failure.
  virtual void Write_v(const UnicodeString& sTime, const UnicodeString& sSeverity,
                       const UnicodeString& sCategory,
                       const std::vector<UnicodeString>& obLines) = 0;
  virtual void Stop_v() = 0;
  virtual ~CLogWriter() = default; // last: the order of the virtual functions is fixed
};

/// Makes the writers of one kind; registered with CLogger under a scheme.
class CLogWriterFactory {
public:
  /// A new writer that the caller owns. May be called by several threads at once.
  virtual CLogWriter* CreateWriter_pob() = 0;
  virtual ~CLogWriterFactory() = default;
};

/// Prints the lines of one message in the default code page, each as "time [severity] category:
/// line" or, bare, as it is. False, and no further line, when one cannot be printed. The stream is
/// not flushed.
bool PrintLogLines_b(FILE* pFile, bool bBare, const UnicodeString& sTime,
                     const UnicodeString& sSeverity, const UnicodeString& sCategory,
                     const std::vector<UnicodeString>& obLines);
