#pragma once

/// While one exists, SIGINT, SIGTERM and SIGHUP do not end the process but ask the loop that runs
/// to come to its end: the first of them is remembered. The same one again within a second is the
/// same wish (a process and its group are often signalled both); a different one, or a later one,
/// ends the process at once. A signal that was ignored stays ignored. One at a time, on the main
/// thread.
class CInterruption {
public:
  CInterruption();
  ~CInterruption();
  CInterruption(const CInterruption&) = delete;
  CInterruption& operator=(const CInterruption&) = delete;

  /// The signal that came since the last of these was made; 0 for none.
  static int Signal_n();

  /// Waits until a poll(2) event is there on a descriptor (-1: on none), a signal has come, or the
  /// milliseconds are over (-1: never). Returns the events, 0 when there are none. A signal that
  /// comes just before the wait ends it too. A wait for anything but standard error keeps the
  /// progress line up to date.
  static short Wait_n(int nDescriptor, short nEvents, long nMilliseconds);
};

/// Sleeps; a signal as above ends it early.
void rwSleep(long nMilliseconds);
