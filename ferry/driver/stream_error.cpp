#include "ferry/driver/stream_error.h"

#include "ferry/errors/exception.h"
#include "ferry/text/ucss.h"

#include <cerrno>
#include <cstring>

void ThrowStreamError(const char* pText) {
  const int nError = errno;
  UnicodeString sText;
  UCSS::ssprintf(sText, u"%s: %s", pText, std::strerror(nError));
  throw VRK_Exception::genericError("", sText, nError, VRK_CRITICAL_ERROR);
}
