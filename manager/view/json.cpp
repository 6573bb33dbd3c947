#include "manager/view/json.h"

#include <chrono>
#include <cmath>
#include <fmt/format.h>
#include <limits>

namespace bxm {

double tenths(double value) { return std::round(value * 10) / 10; }

std::optional<std::int64_t> wholeNumber(const Json& value, std::int64_t least, std::int64_t most) {
  const bool isWhole = value.is_number_unsigned()
                           ? value.get<std::uint64_t>() <= std::numeric_limits<std::int64_t>::max()
                           : value.is_number_integer();
  if (!isWhole || value.get<std::int64_t>() < least || value.get<std::int64_t>() > most)
    return std::nullopt;
  return value.get<std::int64_t>();
}

/// No longer forms than needed, no surrogates, nothing above 10FFFF.
bool isUtf8(std::string_view bytes) {
  const auto at = [bytes](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
  for (std::size_t i = 0, more = 0; i < bytes.size(); i += more + 1) {
    const unsigned char lead = at(i);
    if (lead >= 0x80 && (lead < 0xC2 || lead > 0xF4)) return false;
    more = lead < 0x80 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
    if (bytes.size() - i <= more) return false;
    for (std::size_t k = 1; k <= more; ++k)
      if ((at(i + k) & 0xC0) != 0x80) return false;
    if ((lead == 0xE0 && at(i + 1) < 0xA0) || (lead == 0xED && at(i + 1) > 0x9F) ||
        (lead == 0xF0 && at(i + 1) < 0x90) || (lead == 0xF4 && at(i + 1) > 0x8F))
      return false;
  }
  return true;
}

std::string utcTime(std::int64_t milliseconds) {
  using namespace std::chrono;
  const sys_time<std::chrono::milliseconds> time{std::chrono::milliseconds(milliseconds)};
  const auto today = floor<days>(time);
  const year_month_day date{today};
  const hh_mm_ss clock{time - today};
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", static_cast<int>(date.year()),
                     static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                     clock.hours().count(), clock.minutes().count(), clock.seconds().count(),
                     clock.subseconds().count());
}

} // namespace bxm
