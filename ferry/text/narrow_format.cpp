#include "ferry/text/ss.h"

#include <cstdio>
#include <cstring>
#include <memory>

namespace SS {

char* strncpy(char* dst, const char* src, int n) {
  if (n <= 0) return dst;
  ::strncpy(dst, src, static_cast<size_t>(n));
  dst[n - 1] = '\0';
  return dst;
}

void sstrncpy(std::string& out, const char* src, int n) {
  // By way of a copy: src may point into out.
  out = std::string(src, strnlen(src, n > 0 ? static_cast<size_t>(n) : 0));
}

void CharFill(std::string& out, const std::string& in, char fill, int width, bool right) {
  if (width < 0 || in.size() >= static_cast<size_t>(width)) {
    out = in;
    return;
  }
  std::string filling(static_cast<size_t>(width) - in.size(), fill);
  out = right ? in + filling : filling + in;
}

void ZFill(std::string& out, const std::string& in, int width) {
  CharFill(out, in, '0', width, false);
}

void ZFill(std::string& out, int value, int width) { ZFill(out, std::to_string(value), width); }

int vssprintf(std::string& out, const char* format, va_list args) {
  va_list again;
  va_copy(again, args);
  size_t size = std::strlen(format) + 80;
  auto buffer = std::make_unique_for_overwrite<char[]>(size);
  int length = vsnprintf(buffer.get(), size, format, args);
  if (length >= 0 && static_cast<size_t>(length) >= size) {
    size = static_cast<size_t>(length) + 1;
    buffer = std::make_unique_for_overwrite<char[]>(size);
    length = vsnprintf(buffer.get(), size, format, again);
  }
  va_end(again);
  if (length < 0) {
    out = std::string("ERROR: SS::vssprintf cannot format: ") + format;
    return static_cast<int>(out.size());
  }
  buffer[size - 1] = '\0';
  out = buffer.get();
  return length;
}

int ssprintf(std::string& out, const char* format, ...) {
  va_list args;
  va_start(args, format);
  int length = vssprintf(out, format, args);
  va_end(args);
  return length;
}

std::string encode4XML(const char* s) {
  std::string result;
  for (; *s; ++s) {
    switch (*s) {
    case '"': result += "&quot;"; break;
    case '&': result += "&amp;"; break;
    case '\'': result += "&apos;"; break;
    case '<': result += "&lt;"; break;
    case '>': result += "&gt;"; break;
    default: result += *s;
    }
  }
  return result;
}

} // namespace SS
