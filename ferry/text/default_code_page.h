#pragma once

/// Makes UTF-8 the process's default code page, the one that narrow text is converted from and to.
///
/// Call it first in main, before any text is converted and before a second thread starts. ICU would
/// otherwise take the code page from the environment, which under LANG=C is US-ASCII: every byte
/// above 127 in a record would be lost.
void UseUTF8CodePage_v();
