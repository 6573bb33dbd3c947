#include "ferry/logging/log_writer.h"

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

VRKLog_Exception VRKLog_Exception::Caught_ob() {
  UnicodeString sText = u"unknown exception";
  try {
    throw;
  } catch (const VRK_Exception& obException) {
    return VRKLog_Exception(obException);
  } catch (const std::exception& obException) {
    sText = UnicodeString(obException.what());
  } catch (...) {
  }
  return VRKLog_Exception(genericError("", sText, 1, VRK_CRITICAL_ERROR));
}
