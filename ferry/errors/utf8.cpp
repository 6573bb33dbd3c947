#include "ferry/errors/exception.h"
#include "ferry/text/ucss.h"

std::string UCSS::ucsToUTF8(const UnicodeString& s) {
  UErrorCode status = U_ZERO_ERROR;
  std::string text = ucsToUTF8(s, status);
  if (U_FAILURE(status))
    throw VRK_Exception::genericError("UCSS::ucsToUTF8", UnicodeString(u_errorName(status)), 0,
                                      VRK_CRITICAL_ERROR);
  return text;
}
