#pragma once

#include "ferry/text/unicode_string.h"

#include <functional>
#include <string>

/// What the command line asks for.
struct CFerryOptions {
  enum OPERATION {
    OP_USAGE = 0,
    OP_QUEUE_TO_FILE = 1,
    OP_FILE_TO_QUEUE = 2,
    OP_CLEAN = 3,
    OP_DELETE = 4,
    OP_STATUS = 5,
    OP_DISTRIBUTE = 6,
    OP_CREATE = 7
  };

  OPERATION nOperation = OP_USAGE;
  UnicodeString sQueue;
  UnicodeString sManager; // empty: the default one
  std::string sSection;
  UnicodeString sGrep; // no option sets it
  long nCount = -1;
  long nPause = -1;    // milliseconds
  long nPriority = -1; // the queue's default
  long nExpire = -1;   // seconds
  bool bPeek = false;
  bool bCreateFlag = false;
};

/// Reads a command line, the last option of a kind wins. What is wrong is told on standard error
/// and makes the operation OP_USAGE, which a later option may set again. Calls debug for -d.
CFerryOptions ParseOptions(int nCount, const char* const* aArguments,
                           const std::function<void()>& obDebug);

/// Text as a decimal number as far as it goes, -1 when empty. What does not fit 32 bits becomes the
/// nearest number that does.
long ParseNumber_n(const char* pText);

/// Writes the banner and the usage to standard error.
void InvalidCommand();
