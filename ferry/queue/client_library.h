#pragma once

/// The queue manager's client library, loaded at run time.
///
/// One library serves the process. Its functions are callable under their own names (bx/bx.h)
/// between a successful InitBXM and the UninitBXM that gives back the last reference; calling one
/// outside of that is the caller's fault. These functions may be called from any thread.

/// Takes a reference and loads the library unless it is there: the thread-safe server bindings
/// first, then the plain ones, then the client bindings in the same order. Throws VRKBX_Exception
/// when none loads (the reference stays taken; each that is there is logged with what it failed
/// with) or when an entry point is missing (it is given back).
void InitBXM();

/// Gives back a reference; the last one unloads the library.
void UninitBXM() noexcept;

/// InitBXM, and UninitBXM when the process exits. For a caller's function-local static.
bool InitBXMUntilExit();

/// The address of a function of the loaded library. Throws VRKBX_Exception when it has none of that
/// name.
void* FindFunc(const char* pName);
