#include "ferry/text/ucss.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <unicode/ucnv.h>
#include <unicode/ustring.h>

namespace {

constexpr size_t STACK_BUFFER = 16384;

// Converts into a stack buffer, or for long strings into a heap buffer that is twice what three
// bytes a code unit need. convert(buffer, capacity) returns the length of the result.
template <typename Convert>
std::string narrow(const UnicodeString& s, Convert convert) {
  if (s.isEmpty()) return {};
  size_t needed = static_cast<size_t>(s.length()) * 3 * 2;
  if (needed <= STACK_BUFFER) {
    char buffer[STACK_BUFFER];
    int32_t length = convert(buffer, static_cast<int32_t>(STACK_BUFFER));
    return {buffer, static_cast<size_t>(length)};
  }
  needed = std::min<size_t>(needed, std::numeric_limits<int32_t>::max());
  auto buffer = std::make_unique_for_overwrite<char[]>(needed);
  int32_t length = convert(buffer.get(), static_cast<int32_t>(needed));
  return {buffer.get(), static_cast<size_t>(length)};
}

// ASCII, which most text is, is the same in UTF-8: these loops, which the compiler turns into
// vector instructions, take a tenth of the time of a conversion. They are false for any other text.
bool widenASCII(std::string_view text, UChar* units) {
  unsigned char all = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    units[i] = byte;
    all |= byte;
  }
  return all < 0x80;
}

bool narrowASCII(const UnicodeString& s, std::string& text) {
  const UChar* units = s.getBuffer();
  const auto length = static_cast<size_t>(s.length());
  UChar all = 0;
  for (size_t i = 0; i < length; ++i) all |= units[i];
  if (all >= 0x80) return false;
  text.resize(length);
  char* bytes = text.data(); // the string itself could be among what the loop writes
  for (size_t i = 0; i < length; ++i) bytes[i] = static_cast<char>(units[i]);
  return true;
}

bool defaultIsUTF8() { return std::strcmp(ucnv_getDefaultName(), "UTF-8") == 0; }

} // namespace

void UseUTF8CodePage_v() { ucnv_setDefaultName("UTF-8"); }

namespace UCSS {

void dcpToUCS(UnicodeString& s, std::string_view text) {
  if (text.size() > static_cast<size_t>(INT32_MAX)) throw std::bad_alloc();
  const auto length = static_cast<int32_t>(text.size());
  if (!defaultIsUTF8()) {
    s = UnicodeString(text.data(), length);
    if (s.isBogus()) throw std::bad_alloc();
    return;
  }
  constexpr UChar32 REPLACEMENT = 0xFFFD;
  UErrorCode status = U_ZERO_ERROR;
  int32_t units = 0;
  if (s.isBogus()) s.remove();
  UChar* buffer = s.getBuffer(length); // a byte is never more than one unit
  if (!buffer) throw std::bad_alloc();
  if (widenASCII(text, buffer)) {
    units = length;
  } else {
    u_strFromUTF8WithSub(buffer, s.getCapacity(), &units, text.data(), length, REPLACEMENT, nullptr,
                         &status);
  }
  s.releaseBuffer(U_SUCCESS(status) ? units : 0);
  if (U_FAILURE(status)) throw std::bad_alloc();
}

std::string ucsToDCP(const UnicodeString& s) {
  std::string text;
  if (defaultIsUTF8() && narrowASCII(s, text)) return text;
  return narrow(s, [&](char* buffer, int32_t capacity) {
    // An encoding may need more than six bytes a unit; what did not fit is told but not there.
    int32_t length = s.extract(0, s.length(), buffer, static_cast<uint32_t>(capacity));
    return std::clamp(length, 0, capacity);
  });
}

std::string ucToString(const UnicodeString& s) { return ucsToDCP(s); }

std::string ucsToUTF8(const UnicodeString& s, UErrorCode& status) {
  std::string text;
  if (narrowASCII(s, text)) return text;
  return narrow(s, [&](char* buffer, int32_t capacity) {
    int32_t length = 0;
    u_strToUTF8(buffer, capacity, &length, s.getBuffer(), s.length(), &status);
    return U_FAILURE(status) ? 0 : length;
  });
}

const UChar* getConstUnicodeStringContent(const UnicodeString& s) {
  return const_cast<UnicodeString&>(s).getTerminatedBuffer();
}

} // namespace UCSS
