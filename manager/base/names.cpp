#include "manager/base/names.h"

#include "bx/bx.h"

#include <algorithm>
#include <cstring>

namespace bxm {

std::string unpadded(const char* text, std::size_t length) {
  std::size_t end = ::strnlen(text, length);
  while (end > 0 && text[end - 1] == ' ') --end;
  return std::string(text, end);
}

bool isName(std::string_view name) {
  auto allowed = [](char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '_' || c == '/' || c == '%';
  };
  return !name.empty() && name.size() <= BX_NAME_LENGTH &&
         std::all_of(name.begin(), name.end(), allowed);
}

std::string notAName(std::string_view name, const std::string& thing) {
  return "'" + std::string(name) + "' is no name for a " + thing +
         "; names are 1 to 48 characters of A-Z a-z 0-9 . _ / %";
}

void padInto(char* field, std::size_t length, std::string_view text) {
  const std::size_t copied = std::min(length, text.size());
  std::memcpy(field, text.data(), copied);
  std::memset(field + copied, ' ', length - copied);
}

} // namespace bxm
