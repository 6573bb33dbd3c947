#include <memory>
#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <vector>

#include "ferry/text/ucss.h"

namespace {

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
