#pragma once

#include "ferry/text/ucss.h"

#include <cstdio>
#include <vector>

/// Prints the lines of one message in the default code page, each as
/// "time [severity] category: line" or, bare, as it is. False, and no further line,
/// when one cannot be printed. The stream is not flushed.
bool PrintLogLines_b(FILE* pFile, bool bBare, const UnicodeString& sTime,
                     const UnicodeString& sSeverity, const UnicodeString& sCategory,
                     const std::vector<UnicodeString>& obLines);
