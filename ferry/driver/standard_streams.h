#pragma once

#include <string_view>

/// Puts something harmless, which can not be used, where standard input, output or error is closed.
/// Otherwise the next file that is opened would take its number, and records or notices would be
/// written into a queue's store.
void GuardStandardStreams_v();

/// Makes standard error ready for a text: waits for room, and takes the progress line away. False
/// when there is no room soon after a signal asked for the end (CInterruption).
bool AwaitErrorRoom_b();

/// Writes a notice to standard error. One that cannot be written is lost: it tells of what was
/// done, and does not undo it.
void WriteNotice_v(std::string_view sText);

/// Throws a VRK_Exception of a failed call on a standard stream: the text, ": " and what errno
/// says.
[[noreturn]] void ThrowStreamError(const char* pText);
