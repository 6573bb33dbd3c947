#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace bxm {

/// A name as the API passes it: length characters at most, ended by a zero byte or padded with
/// blanks. Returns it without the padding.
std::string unpadded(const char* text, std::size_t length);

/// True for 1 to 48 characters of A-Z a-z 0-9 . _ / %.
bool isName(std::string_view name);

/// Says so of one that is none, and what names are. thing: "queue".
std::string notAName(std::string_view name, const std::string& thing);

/// Copies a name into a fixed field, cut or padded with blanks.
void padInto(char* field, std::size_t length, std::string_view text);

} // namespace bxm
