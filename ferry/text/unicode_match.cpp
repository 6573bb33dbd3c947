#include "ferry/text/ucss.h"
#include "ferry/text/wild_match.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <unicode/uchar.h>

namespace {

int32_t findForward(const UnicodeString& s, const UnicodeString& set, int32_t start, bool inSet) {
  if (start < 0) return -1;
  // A start within a surrogate pair counts as the pair's.
  for (int32_t i = start; i < s.length(); i = s.getChar32Limit(i + 1))
    if ((set.indexOf(s.char32At(i)) >= 0) == inSet) return i;
  return -1;
}

int32_t findBackward(const UnicodeString& s, const UnicodeString& set, int32_t start, bool inSet) {
  if (start >= s.length()) return -1;
  for (int32_t i = start; i >= 0; --i) {
    i = s.getChar32Start(i);
    if ((set.indexOf(s.char32At(i)) >= 0) == inSet) return i;
  }
  return -1;
}

std::u32string codePoints(const UnicodeString& s) {
  std::u32string result(static_cast<size_t>(s.countChar32()), U'\0');
  size_t length = 0;
  for (int32_t i = 0; i < s.length(); i += U16_LENGTH(s.char32At(i)))
    result[length++] = static_cast<char32_t>(s.char32At(i));
  return result;
}

} // namespace

namespace UCSS {

int32_t findFirstOf(const UnicodeString& s, const UnicodeString& set, int32_t start) {
  return findForward(s, set, start, true);
}

int32_t findFirstNotOf(const UnicodeString& s, const UnicodeString& set, int32_t start) {
  return findForward(s, set, start, false);
}

int32_t findLastOf(const UnicodeString& s, const UnicodeString& set) {
  return findBackward(s, set, s.length() - 1, true);
}

int32_t findLastNotOf(const UnicodeString& s, const UnicodeString& set, int32_t start) {
  return findBackward(s, set, start, false);
}

int Tokenize(const UnicodeString& s, std::vector<UnicodeString>& out,
             const UnicodeString& separators, bool append) {
  std::vector<UnicodeString> tokens; // apart, since s and separators may be elements of out
  int32_t start = findFirstNotOf(s, separators);
  while (start >= 0) {
    int32_t end = findFirstOf(s, separators, start);
    if (end < 0) end = s.length();
    tokens.emplace_back(s, start, end - start);
    start = findFirstNotOf(s, separators, end);
  }
  if (!append) out.clear();
  std::move(tokens.begin(), tokens.end(), std::back_inserter(out));
  return static_cast<int>(out.size());
}

int WildMatch(const UnicodeString& pattern, const UnicodeString& text, bool nocase) {
  std::u32string p = codePoints(pattern);
  std::u32string t = codePoints(text);
  auto upper = [](char32_t c) { return u_toupper(static_cast<UChar32>(c)); };
  return wildMatch<char32_t>(
      p, t, [&](char32_t a, char32_t b) { return a == b || (nocase && upper(a) == upper(b)); });
}

double strMatchPercentage(const UnicodeString& a, const UnicodeString& b, double threshold) {
  int32_t longer = std::max(a.length(), b.length());
  int32_t shorter = std::min(a.length(), b.length());
  if (longer == 0) return 0.0;
  int64_t matches = 0;
  for (int32_t i = 0; i < shorter; ++i) matches += a[i] == b[i];
  double percentage = static_cast<double>(matches * 100 / longer);
  return percentage >= threshold ? percentage : 0.0;
}

bool checkTransposition(const UnicodeString& first, const UnicodeString& second) {
  if (first.length() != second.length()) return false;
  UnicodeString a(first);
  UnicodeString b(second);
  a.toUpper();
  b.toUpper();
  if (a == b || a.length() != b.length()) return false;

  const int32_t last = a.length() - 1;
  bool endsExchanged = false;
  for (int32_t i = 0; i <= last; ++i) {
    if (a[i] == b[i] || (i == last && endsExchanged)) continue;
    if (i < last && a[i] == b[i + 1] && a[i + 1] == b[i]) {
      ++i;
    } else if (i == 0 && last > 0 && a[0] == b[last] && a[last] == b[0]) {
      endsExchanged = true;
    } else {
      return false;
    }
  }
  return true;
}

bool isASCII_7(const UnicodeString& s) {
  for (int32_t i = 0; i < s.length(); ++i)
    if (s[i] > 127) return false;
  return true;
}

} // namespace UCSS
