#pragma once

#include <string>
#include <string_view>

namespace bench {

/// Makes UTF-8 ICU's default code page, as the tool does.
void useUtf8();

/// Bytes in the default code page to a UnicodeString and from there to UTF-8. The result is valid
/// until the next call.
std::string_view throughIcu(std::string_view bytes);

/// The same without the line end, and with one added.
std::string_view lineThroughIcu(std::string_view record);

} // namespace bench
