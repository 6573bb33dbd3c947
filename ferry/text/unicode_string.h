#pragma once

#include <unicode/unistr.h>

/// All text inside the tool: keys, names, messages, records. UTF-16.
using icu::UnicodeString;
