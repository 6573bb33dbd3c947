#pragma once

#include "ferry/logging/log_writer.h"

#include <cstdio>
#include <mutex>

/// Writes to standard output when the host of its destination is "stdout", else to standard error;
/// "style=bare" leaves out time, severity and category.
///
/// Each message is printed and flushed as one block, whatever other console writers print. A failed
/// print is ignored: the console never fails a logging call.
class CConsoleWriter : public CLogWriter {
public:
  void Start_v(const URIUC& obDestination) override;
  void Write_v(const UnicodeString& sTime, const UnicodeString& sSeverity,
               const UnicodeString& sCategory, const std::vector<UnicodeString>& obLines) override;
  void Stop_v() override {}

private:
  static std::mutex mutex; // of all console writers

  FILE* m_pStream = stderr;
  bool m_bBare = false;
};

class CConsoleWriterFactory : public CLogWriterFactory {
public:
  CLogWriter* CreateWriter_pob() override { return new CConsoleWriter; }
  static CConsoleWriterFactory& Instance_rob();
};
