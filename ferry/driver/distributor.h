#pragma once

#include "ferry/text/unicode_string.h"

#include <string>

/// Distributes the lines of standard input over the queues that a section of the configuration file
/// names, in turn, passing over those that are full; reports what each one got on standard error.
///
/// Unless grep is empty, only records that contain it are sent. The pause, in milliseconds, follows
/// each attempt to place a record; count limits the attempts, and is looked at when a record was
/// placed. Failures are thrown, without report; what was sent stays sent. A signal ends it at the
/// next record (CInterruption).
void ParseIni(std::string section, UnicodeString grep, long count, long pause, long priority,
              long expire);
