#include "bench/floor_text.h"

#include <cstdlib>
#include <unicode/ucnv.h>
#include <unicode/unistr.h>
#include <unicode/ustring.h>

namespace bench {

namespace {

std::string_view toUtf8(const icu::UnicodeString& text) {
  static std::string buffer;
  const std::size_t needed = static_cast<std::size_t>(text.length()) * 3;
  if (buffer.size() < needed) buffer.resize(needed);
  UErrorCode status = U_ZERO_ERROR;
  std::int32_t length = 0;
  ::u_strToUTF8(buffer.data(), static_cast<std::int32_t>(buffer.size()), &length, text.getBuffer(),
                text.length(), &status);
  if (U_FAILURE(status)) std::abort();
  return {buffer.data(), static_cast<std::size_t>(length)};
}

icu::UnicodeString fromCodePage(std::string_view bytes) {
  return {bytes.data(), static_cast<std::int32_t>(bytes.size())};
}

} // namespace

void useUtf8() { ::ucnv_setDefaultName("UTF-8"); }

std::string_view throughIcu(std::string_view bytes) { return toUtf8(fromCodePage(bytes)); }

std::string_view lineThroughIcu(std::string_view record) {
  icu::UnicodeString text = fromCodePage(record);
  if (text.endsWith(u"\n", 1)) text.truncate(text.length() - 1);
  return toUtf8(text.append(u'\n'));
}

} // namespace bench
