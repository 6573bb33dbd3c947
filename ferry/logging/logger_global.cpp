#include "ferry/logging/log_writer.h"
#include "ferry/logging/logger.h"

namespace {

// Runs a logging call of which nothing may come back but its success.
template <typename Call>
bool Try_b(Call obCall) noexcept {
  try {
    obCall();
    return true;
  } catch (...) {
    return false;
  }
}

} // namespace

void CLogger::SetGlobal_v(CLogger* pobLogger) { pobGlobalLogger = pobLogger; }

void CLogger::Log_v(const CMsg& obMsg) {
  if (CLogger* pobLogger = pobGlobalLogger) pobLogger->VLocalLog_v(obMsg);
}

void CLogger::VLog_v(unsigned nSeverity, const UChar* pFormat, va_list args) {
  VLog_v(UnicodeString(), nSeverity, pFormat, args);
}

void CLogger::VLog_v(const UnicodeString& sCategory, unsigned nSeverity, const UChar* pFormat,
                     va_list args) {
  CLogger* pobLogger = pobGlobalLogger;
  if (!pobLogger) return;
  CMsg obMsg(sCategory, nSeverity);
  obMsg.VAddLine_rob(pFormat, args);
  pobLogger->VLocalLog_v(obMsg);
}

void CLogger::Log_v(unsigned nSeverity, const UChar* pFormat, ...) {
  if (!pobGlobalLogger.load()) return;
  CMsg obMsg(UnicodeString(), nSeverity);
  va_list args;
  va_start(args, pFormat);
  obMsg.VAddLine_rob(pFormat, args);
  va_end(args);
  Log_v(obMsg);
}

void CLogger::Log_v(const UnicodeString& sCategory, unsigned nSeverity, const UChar* pFormat, ...) {
  if (!pobGlobalLogger.load()) return;
  CMsg obMsg(sCategory, nSeverity);
  va_list args;
  va_start(args, pFormat);
  obMsg.VAddLine_rob(pFormat, args);
  va_end(args);
  Log_v(obMsg);
}

bool CLogger::TryLog_b(const CMsg& obMsg) noexcept {
  return Try_b([&] { Log_v(obMsg); });
}

bool CLogger::TryLog_b(unsigned nSeverity, const UChar* pFormat, ...) noexcept {
  va_list args;
  va_start(args, pFormat);
  const bool bLogged = Try_b([&] { VLog_v(nSeverity, pFormat, args); });
  va_end(args);
  return bLogged;
}

bool CLogger::TryLog_b(const UnicodeString& sCategory, unsigned nSeverity, const UChar* pFormat,
                       ...) noexcept {
  va_list args;
  va_start(args, pFormat);
  const bool bLogged = Try_b([&] { VLog_v(sCategory, nSeverity, pFormat, args); });
  va_end(args);
  return bLogged;
}
