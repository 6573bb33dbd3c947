#pragma once

#include "ferry/driver/options.h"

/// Carries out what the options ask for and returns the exit status. A signal that ended a loop is
/// told as 128 plus its number. Failures are thrown.
int Dispatch_n(const CFerryOptions& obOptions);
