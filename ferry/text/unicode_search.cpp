#include <algorithm>
#include <iterator>

#include "ferry/text/ucss.h"

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

} // namespace UCSS
