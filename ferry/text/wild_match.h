#pragma once

#include <string_view>

/// The matcher behind SS::WildMatch and UCSS::WildMatch. equal compares a pattern character that is
/// no wildcard with a text character.
template <typename Char, typename Equal>
int wildMatch(std::basic_string_view<Char> pattern, std::basic_string_view<Char> text,
              Equal equal) {
  bool wild = false;
  size_t p = 0;
  size_t t = 0;
  auto matches = [&] {
    if (p == pattern.size() || (pattern[p] != '_' && !equal(pattern[p], text[t]))) return false;
    wild |= pattern[p] == '_';
    return true;
  };
  auto atStar = [&] { return p < pattern.size() && pattern[p] == '*'; };

  for (; t < text.size() && !atStar(); ++p, ++t)
    if (!matches()) return 0;

  size_t afterStar = 0;
  size_t restart = 0;
  while (t < text.size()) {
    if (atStar()) {
      wild = true;
      if (++p == pattern.size()) return -1;
      afterStar = p;
      restart = t + 1;
    } else if (matches()) {
      ++p, ++t;
    } else {
      p = afterStar;
      t = restart++;
    }
  }

  for (; atStar(); ++p) wild = true;
  if (p < pattern.size()) return 0;
  return wild ? -1 : 1;
}
