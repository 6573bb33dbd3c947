#pragma once

#include "ferry/queue/queue.h"

/// The loops that move records, one per line of text, between the standard streams and one open
/// queue. Pauses are in milliseconds.
///
/// What a loop reports on standard error is committed. An exception of the queue leaves the loop at
/// once and without report; so do failures of the streams and of a commit, as VRK_Exception. A
/// signal ends a loop at the next record like the end of its input (CInterruption).
class CFerryEx {
public:
  CFerryEx() = delete;

  /// Copies standard input into the queue. A count of 0 or less is no limit. The line's newline is
  /// part of the record.
  static void ProcessFile2Q(CCMEBX* q, long count, long pause, long priority, long expire);

  /// Copies records to standard output, one per line, and takes them off the queue unless peek is
  /// set. It ends at exactly count records; a count of 0 does nothing at all.
  static void ProcessQ2File(CCMEBX* q, long count, bool peek, long pause);

  /// Takes records off the queue. A count of -1 is no limit; any other below 1 takes one record.
  static void CleanQueue(CCMEBX* q, long count);

  /// Unless empty, only records that contain it are transferred.
  static UnicodeString m_sGrep;
};
