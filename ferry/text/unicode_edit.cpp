#include "ferry/text/ucss.h"

#include <algorithm>
#include <memory>
#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/utf16.h>
#include <utility>
#include <vector>

namespace {

bool isWhite(UChar c) { return c == 9 || c == 10 || c == 12 || c == 13 || c == 32; }

// Copies what stays instead of editing in place, so that the cost does not grow with the square of
// the length.
template <typename Keeps>
int32_t replaceUnless(UnicodeString& s, const UnicodeString& replacement, Keeps keeps) {
  UnicodeString result;
  int32_t changed = 0;
  for (int32_t i = 0; i < s.length();) {
    UChar32 c = s.char32At(i);
    i += U16_LENGTH(c);
    if (keeps(c)) {
      result.append(c);
    } else {
      result.append(replacement);
      ++changed;
    }
  }
  if (changed) s = std::move(result);
  return changed;
}

std::vector<int32_t> wordStarts(const UnicodeString& s) {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<icu::BreakIterator> words(
      icu::BreakIterator::createWordInstance(icu::Locale::getDefault(), status));
  std::vector<int32_t> starts;
  if (U_FAILURE(status)) return starts;
  words->setText(s);
  for (int32_t at = words->first(); at != icu::BreakIterator::DONE; at = words->next())
    starts.push_back(at);
  return starts;
}

} // namespace

namespace UCSS {

UnicodeString& LTrim(UnicodeString& s, int32_t start) {
  int32_t end = start;
  while (isWhite(s.charAt(end))) ++end; // charAt is 0xFFFF outside the string
  return end > start ? s.remove(start, end - start) : s;
}

UnicodeString& RTrim(UnicodeString& s) {
  int32_t length = s.length();
  while (isWhite(s.charAt(length - 1))) --length;
  s.truncate(length);
  return s;
}

UnicodeString& LStrip(UnicodeString& s, UChar c) {
  int32_t count = 0;
  while (count < s.length() && s[count] == c) ++count;
  return s.remove(0, count);
}

UnicodeString& RStrip(UnicodeString& s, UChar c) {
  int32_t length = s.length();
  while (length > 0 && s[length - 1] == c) --length;
  s.truncate(length);
  return s;
}

int32_t Remove(UnicodeString& s, UChar c) {
  int32_t first = s.indexOf(c);
  if (first < 0) return 0; // most records: nothing is written
  int32_t length = s.length();
  UChar* units = s.getBuffer(length);
  if (!units) return 0;
  UChar* end = std::remove(units + first, units + length, c);
  s.releaseBuffer(static_cast<int32_t>(end - units));
  return length - s.length();
}

int32_t RemoveNonAlphaNumeric(UnicodeString& s, const UnicodeString& replacement) {
  return replaceUnless(s, replacement, [](UChar32 c) { return u_isalnum(c); });
}

int32_t RemoveNonAlphaNumericWithPreserveChars(UnicodeString& s, const UnicodeString& replacement,
                                               const UnicodeString& keep) {
  return replaceUnless(s, replacement,
                       [&](UChar32 c) { return u_isalnum(c) || keep.indexOf(c) >= 0; });
}

int32_t RemoveNonNumeric(UnicodeString& s, const UnicodeString& replacement) {
  return replaceUnless(s, replacement, [](UChar32 c) { return u_isdigit(c); });
}

UnicodeString& toProperCase(UnicodeString& s) {
  s.toLower();
  std::vector<int32_t> starts = wordStarts(s);
  // From the back: a title-cased character may be longer, and starts before it stay right.
  for (auto at = starts.rbegin(); at != starts.rend(); ++at) {
    if (*at >= s.length()) continue;
    UChar32 c = s.char32At(*at);
    UChar32 title = u_totitle(c);
    if (title != c) s.replace(*at, U16_LENGTH(c), title);
  }
  return s;
}

} // namespace UCSS
