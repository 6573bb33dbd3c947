#pragma once

#include "ferry/errors/exception.h"

/// A message that is not in the format that it should be in.
class VRKFormat_Exception : public VRK_Exception {
public:
  VRKFormat_Exception();
  VRKFormat_Exception(const char* function, const KELErrorMessage& message, int code,
                      VRK_Severity severity);
};
