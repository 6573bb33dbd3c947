#include "ferry/text/ss.h"

#include <algorithm>
#include <cctype>

namespace {

char upper(char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); }
char lower(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

// Returns how many bytes were looked at, all of them: callers count positions, not changes.
template <typename Keeps>
int replaceUnless(std::string& s, const std::string& replacement, Keeps keeps) {
  std::string result;
  result.reserve(s.size());
  for (char c : s) {
    if (keeps(static_cast<unsigned char>(c)))
      result += c;
    else
      result += replacement;
  }
  s.swap(result);
  return static_cast<int>(result.size());
}

} // namespace

namespace SS {

// Most records hold one at the end or none: searching is faster than looking at each byte.
int Remove(std::string& s, char c) {
  const size_t first = s.find(c);
  if (first == std::string::npos) return 0;
  const size_t before = s.size();
  s.erase(std::remove(s.begin() + static_cast<std::ptrdiff_t>(first), s.end(), c), s.end());
  return static_cast<int>(before - s.size());
}

int RemoveNonNumeric(std::string& s, const std::string& replacement) {
  return replaceUnless(s, replacement, [](unsigned char c) { return std::isdigit(c); });
}

int RemoveNonAlphaNumeric(std::string& s, const std::string& replacement) {
  return replaceUnless(s, replacement,
                       [](unsigned char c) { return std::isdigit(c) || std::isalpha(c); });
}

int Replace(std::string& s, std::string find, std::string with) {
  if (find.empty()) return 0;
  std::string result;
  size_t done = 0;
  int count = 0;
  for (size_t at; (at = s.find(find, done)) != std::string::npos; done = at + find.size()) {
    result.append(s, done, at - done).append(with);
    ++count;
  }
  if (count) s = result.append(s, done);
  return count;
}

bool ProperCase(std::string& s) {
  bool wordStart = true;
  for (char& c : s) {
    c = wordStart ? upper(c) : lower(c);
    wordStart = c == ' ';
  }
  return !s.empty() && wordStart;
}

void MakeLower(std::string& s) {
  for (char& c : s) c = lower(c);
}

void MakeUpper(std::string& s) {
  for (char& c : s) c = upper(c);
}

int RTrim(std::string& s) {
  size_t length = s.size();
  s.resize(s.find_last_not_of("\t\n\r ") + 1); // npos + 1 is 0
  return static_cast<int>(length - s.size());
}

int LTrim(std::string& s) {
  size_t length = s.size();
  s.erase(0, s.find_first_not_of("\t "));
  return static_cast<int>(length - s.size());
}

int Trim(std::string& s) { return LTrim(s) + RTrim(s); }

} // namespace SS
