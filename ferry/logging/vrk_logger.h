#pragma once

#include "ferry/logging/logger.h"

/// The logger of the command-line tool.
class CVRKLogger : public CLogger {
public:
  explicit CVRKLogger(const UChar* pModule) : CLogger(pModule) {}
};
