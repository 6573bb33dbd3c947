#pragma once

#include "manager/engine/codes.h"

namespace bxm {

/// The codes for the exception in flight. What an operator has to look after is told in a line on
/// standard error, since the codes cannot say it.
Codes codesOfException(const char* call) noexcept;

/// The wall between the C callers and the C++ below: runs body, which returns Codes, lets nothing
/// through, and writes the reason first and the completion code last.
template <typename Body>
void guarded(const char* call, BXLONG* completion, BXLONG* reason, Body body) noexcept {
  Codes codes;
  try {
    codes = body();
  } catch (...) {
    codes = codesOfException(call);
  }
  *reason = codes.reason;
  *completion = codes.completion;
}

} // namespace bxm
