#pragma once

#include "ferry/queue/queue.h"

/// Whether a record passes a filter; everything passes an empty one.
bool Passes_b(const UnicodeString& sRecord, const UnicodeString& sGrep);

/// Sends a record; throws VRK_Exception where the queue only tells that it did not.
void SendRecord_v(CCMEBX& obQueue, const UnicodeString& sRecord, long nPriority, long nExpire);
