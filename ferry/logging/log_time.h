#pragma once

#include "ferry/text/ucss.h"

#include <cstdint>

/// Milliseconds since 1970 as log lines show them, "03/14 15:09:26", in local time.
UnicodeString LogTimeText_s(int64_t nTime);
