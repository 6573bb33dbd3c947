#pragma once

/// Throws a VRK_Exception of a failed call on a standard stream: the text, ": " and what errno
/// says.
[[noreturn]] void ThrowStreamError(const char* pText);
