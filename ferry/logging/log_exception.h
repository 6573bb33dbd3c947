#pragma once

#include "ferry/errors/exception.h"

/// What a logging call throws when a writer failed.
class VRKLog_Exception : public VRK_Exception {
public:
  using VRK_Exception::VRK_Exception;
  /// Carries over the error stack of another exception.
  explicit VRKLog_Exception(const VRK_Exception& obOther) : VRK_Exception(obOther) {}
  /// What a `catch (...)` has caught, whatever it is.
  static VRKLog_Exception Caught_ob();
};
