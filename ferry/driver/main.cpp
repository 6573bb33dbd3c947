#include "ferry/config/settings.h"
#include "ferry/driver/dispatch.h"
#include "ferry/driver/progress_line.h"
#include "ferry/driver/standard_output.h"
#include "ferry/driver/standard_streams.h"
#include "ferry/errors/exception.h"
#include "ferry/logging/logger.h"
#include "ferry/text/ucss.h"

#include <csignal>
#include <cstdio>
#include <optional>
#include <stdio_ext.h>

namespace {

constexpr int STATUS_FAILED = -1;

// Its console may be the terminal that the progress line is on.
class CToolLogger : public CVRKLogger {
public:
  using CVRKLogger::CVRKLogger;
  void VLocalLog_v(const CMsg& obMsg) override {
    CProgressLine::Wipe_v();
    CVRKLogger::VLocalLog_v(obMsg);
  }
};

// The logger outlives the handlers below, which log into it.
int Run_n(int nCount, char** aArguments, std::optional<CToolLogger>& obLogger) {
  SetModuleName_v(UnicodeString(nCount > 0 ? aArguments[0] : ""));
  UnicodeString sModule;
  GetModuleName_b(sModule);
  obLogger.emplace(UCSS::getConstUnicodeStringContent(sModule));
  obLogger->LoadConfig_b(UnicodeString(u"console://stdout/?style=bare *.!DBUG"));
  CLogger::SetGlobal_v(&*obLogger);
  return Dispatch_n(ParseOptions(nCount, aArguments, [&obLogger] {
    obLogger->LoadConfig_b(UnicodeString(u"console://stdout/?style=bare *.*"));
  }));
}

void PrintError_v(const char* pWhat) {
  if (AwaitErrorRoom_b()) std::fprintf(stderr, "ERROR: %s\n", pWhat);
}

void PrintException_v(VRK_Exception& obException) noexcept {
  PrintError_v(obException.what());
  const off_t nEnd = CStandardOutput::End_n();
  try {
    obException.PrintException(obException.Severity(), true, true, false);
  } catch (...) {
    PrintError_v("The log cannot be written");
  }
  if (std::ferror(stdout) == 0) return;
  __fpurge(stdout); // the end of the process would try it again
  CStandardOutput::CutBack_v(nEnd);
}

} // namespace

int main(int nCount, char** aArguments) {
  UseUTF8CodePage_v();
  GuardStandardStreams_v();
  // A reader that went away, and a limit on the size of files, are errors like a full disk.
  std::signal(SIGPIPE, SIG_IGN);
  std::signal(SIGXFSZ, SIG_IGN);
  std::optional<CToolLogger> obLogger;
  try {
    return Run_n(nCount, aArguments, obLogger);
  } catch (VRK_Exception& obException) {
    PrintException_v(obException);
  } catch (const std::exception& obException) {
    PrintError_v(obException.what());
  } catch (...) {
    PrintError_v("UNKNOWN EXCEPTION");
  }
  return STATUS_FAILED;
}
