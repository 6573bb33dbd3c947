#include "ferry/text/ss.h"
#include "ferry/text/wild_match.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <strings.h>

namespace SS {

bool nocase_compare(char a, char b) {
  return std::toupper(static_cast<unsigned char>(a)) == std::toupper(static_cast<unsigned char>(b));
}

bool CompareNoCase(const std::string& a, const std::string& b) {
  return a.size() == b.size() && strcasecmp(a.c_str(), b.c_str()) == 0;
}

int WildMatch(const std::string& pattern, const std::string& text, bool nocase) {
  return wildMatch<char>(pattern, text,
                         [&](char a, char b) { return nocase ? nocase_compare(a, b) : a == b; });
}

int Tokenize(const std::string& s, std::vector<std::string>& out, const std::string& delimiters,
             bool append) {
  std::vector<std::string> tokens;      // apart, since s and delimiters may be elements of out
  const char* set = delimiters.c_str(); // up to the first NUL
  size_t start = s.find_first_not_of(set);
  while (start != std::string::npos) {
    size_t end = s.find_first_of(set, start);
    tokens.push_back(s.substr(start, end == std::string::npos ? end : end - start));
    start = end == std::string::npos ? end : s.find_first_not_of(set, end);
  }
  if (!append) out.clear();
  std::move(tokens.begin(), tokens.end(), std::back_inserter(out));
  return static_cast<int>(out.size());
}

} // namespace SS
