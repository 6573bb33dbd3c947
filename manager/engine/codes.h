#pragma once

#include "bx/bx.h"

namespace bxm {

/// How a call ended, as its caller is told.
struct Codes {
  BXLONG completion = BXCC_OK;
  BXLONG reason = BXRC_NONE;
};

constexpr Codes ok() { return {}; }
constexpr Codes warning(BXLONG reason) { return {BXCC_WARNING, reason}; }
constexpr Codes failed(BXLONG reason) { return {BXCC_FAILED, reason}; }

} // namespace bxm
