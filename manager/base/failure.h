#pragma once

#include "bx/bx.h"

#include <stdexcept>
#include <string>

namespace bxm {

/// How a call ended, as its caller is told.
struct Codes {
  BXLONG completion = BXCC_OK;
  BXLONG reason = BXRC_NONE;
};

constexpr Codes ok() { return {}; }
constexpr Codes warning(BXLONG reason) { return {BXCC_WARNING, reason}; }
constexpr Codes failed(BXLONG reason) { return {BXCC_FAILED, reason}; }

/// What went wrong below the entry points: the reason code that the caller is told and a line for
/// whoever looks after the store. Expected outcomes (an empty or full queue, an unknown name) are
/// results, never a Failure.
class Failure : public std::runtime_error {
public:
  Failure(BXLONG reason, const std::string& text) : std::runtime_error(text), m_reason(reason) {}
  BXLONG reason() const { return m_reason; }

private:
  BXLONG m_reason;
};

/// The reason code for what was caught: a Failure's own, 2102 for missing memory, else 2195.
BXLONG reasonOf(const std::exception& error);

/// The Failure for a system call that set errno: full disk, no permission, no resources, or else
/// fallback.
[[noreturn]] void failWithErrno(int error, BXLONG fallback, const std::string& what);

} // namespace bxm
