#include "ferry/logging/log_line.h"

bool PrintLogLines_b(FILE* pFile, bool bBare, const UnicodeString& sTime,
                     const UnicodeString& sSeverity, const UnicodeString& sCategory,
                     const std::vector<UnicodeString>& obLines) {
  std::string sPrefix;
  if (!bBare)
    sPrefix = UCSS::ucsToDCP(sTime) + " [" + UCSS::ucsToDCP(sSeverity) + "] " +
              UCSS::ucsToDCP(sCategory) + ": ";
  for (const UnicodeString& sLine : obLines)
    if (std::fprintf(pFile, "%s%s\n", sPrefix.c_str(), UCSS::ucsToDCP(sLine).c_str()) < 0)
      return false;
  return true;
}
