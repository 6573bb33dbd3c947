#include "ferry/text/uc_string.h"

#include "ferry/text/ucss.h"

#include <stdexcept>

UCString& UCString::operator=(const UnicodeString& text) {
  UnicodeString::operator=(text);
  return *this;
}

UCString& UCString::rTrim() {
  UCSS::RTrim(*this);
  return *this;
}

UCString& UCString::trim() { return rTrim().lTrim(); }

UCString& UCString::lTrim(int start) {
  if (start < 0) throw std::invalid_argument("Negative index provided for lTrim operation");
  UCSS::LTrim(*this, start);
  return *this;
}

UCString& UCString::toUpper() {
  UnicodeString::toUpper();
  return *this;
}
