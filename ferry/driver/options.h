#pragma once

#include "ferry/text/unicode_string.h"

#include <functional>
#include <span>
#include <string>
#include <vector>

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

class COptionParser;

/// One option of the command line: how it is read, and what the usage, the manual page and the
/// shells' completions say of it.
struct COption {
  char cLetter;
  const char* pValue;     ///< the name of its value, null: it has none
  const char* pShown;     ///< that name in the usage's list of options
  const char* pText;      ///< what it does, null: the usage does not show it
  const char* pModifiers; ///< of an operation: letters of those that its usage shows; else null
  void (COptionParser::*pRead)();
};

/// All of them: operations, modifiers, and those that the usage does not show.
std::span<const COption> Options_a();

/// The modifiers that go with an operation, in the order in which its usage shows them.
std::vector<const COption*> Modifiers_a(const COption& obOperation);

/// Text as a decimal number as far as it goes, -1 when empty. What does not fit 32 bits becomes the
/// nearest number that does.
long ParseNumber_n(const char* pText);

/// Writes the banner and the usage to standard error.
void InvalidCommand();
