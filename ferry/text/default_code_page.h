#pragma once

/// Makes UTF-8 the process's default code page, the one that narrow text is converted from and to.
///
/// Call it first in main, before any text is converted and before a second thread starts. Where ICU
/// takes the code page from the environment, LANG=C would make it US-ASCII and lose every byte
/// above 127 of a record. ICU as usually built for Linux is fixed to UTF-8, and the call changes
/// nothing.
void UseUTF8CodePage_v();
