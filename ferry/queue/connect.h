#pragma once

#include "bx/bx.h"
#include "ferry/text/unicode_string.h"

/// Connects to a manager (empty: the default one) with a handle that is not shared between
/// threads. The codes tell whether it worked.
void ConnectX_v(const UnicodeString& sManager, BXHCONN& nConnection, BXLONG& nCompletion,
                BXLONG& nReason);

/// Puts a name into a descriptor's field, zero-padded, cut at the field's end.
void SetName_v(BXCHAR (&aField)[BX_NAME_LENGTH], const UnicodeString& sName);
