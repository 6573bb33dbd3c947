#pragma once

#include "manager/view/json.h"

#include <cstdint>
#include <string>

/// How commands tell what they found: JSON for programs, aligned text for people.
namespace bxm::admin {

/// Objects with the same keys: an array, or a table with the keys as its heads, numbers to the
/// right. For people nothing is printed where there is none.
void reportRows(const Json& rows, bool json);
/// One object: itself, or a line for each key.
void reportOne(const Json& object, bool json);

/// "3 queues", "1 message".
std::string counted(std::uint64_t count, const std::string& thing);
/// For people: 412 ms, 37 s, 5 min, 3 h, 12 d.
std::string duration(std::int64_t milliseconds);

/// A text without what would move a terminal's cursor: blanks instead of control characters, C0 and
/// C1.
std::string printable(std::string text);

/// Whether standard output is a terminal whose user wants colours.
bool showsColours();

} // namespace bxm::admin
