#include "ferry/logging/log_exception.h"

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
