#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// What JSON is made of here, wherever it is made.
namespace bxm {

using Json = nlohmann::ordered_json;

/// "2026-11-22T09:30:00.125Z" of ms since 1970.
std::string utcTime(std::int64_t milliseconds);
/// To one digit behind the point.
double tenths(double value);
/// None where it is anything else than a whole number of this range.
std::optional<std::int64_t> wholeNumber(const Json& value, std::int64_t least, std::int64_t most);
/// Whether JSON can hold the bytes as they are.
bool isUtf8(std::string_view bytes);

} // namespace bxm
