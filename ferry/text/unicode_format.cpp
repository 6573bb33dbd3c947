#include "ferry/text/ss.h"
#include "ferry/text/ucss.h"

#include <charconv>
#include <memory>
#include <new>
#include <unicode/ustdio.h>
#include <unicode/ustring.h>
#include <utility>

namespace {

constexpr int32_t FIRST_BUFFER = 1024;

struct Conversion {
  int longs = 0;
  UChar letter = 0;
  const UChar* end = nullptr;
};

Conversion readConversion(const UChar* at) {
  Conversion result;
  for (; *at == u'l'; ++at) ++result.longs;
  result.letter = *at;
  result.end = *at ? at + 1 : at;
  return result;
}

// Whether the format has only strings and integers without width or flags. ICU opens a number
// formatter for every call with an integer, forty times the cost of the rest of a log line.
bool isPlain(const UChar* format) {
  while (*format) {
    if (*format++ != u'%') continue;
    Conversion next = readConversion(format);
    bool number = (next.letter == u'd' || next.letter == u'u') && next.longs <= 2;
    bool text = (next.letter == u'S' || next.letter == u's' || next.letter == u'%') && !next.longs;
    if (!number && !text) return false;
    format = next.end;
  }
  return true;
}

template <typename Number>
void appendNumber(UnicodeString& out, Number value) {
  char digits[24];
  const char* end = std::to_chars(digits, digits + sizeof digits, value).ptr;
  for (const char* digit = digits; digit != end; ++digit) out.append(static_cast<UChar>(*digit));
}

void appendNarrow(UnicodeString& out, const char* text) {
  out.append(UnicodeString(text ? text : "(null)"));
}

void appendWide(UnicodeString& out, const UChar* text) {
  out.append(text ? text : u"(null)", 0, -1);
}

// A struct, so that the helpers advance one list: va_list may be an array type.
struct Arguments {
  va_list list;
};

void appendConversion(UnicodeString& out, const Conversion& conversion, Arguments& args) {
  bool wide = conversion.longs == 2;
  switch (conversion.letter) {
  case u'S': return appendWide(out, va_arg(args.list, const UChar*));
  case u's': return appendNarrow(out, va_arg(args.list, const char*));
  case u'd':
    if (wide) return appendNumber(out, va_arg(args.list, long long));
    if (conversion.longs) return appendNumber(out, static_cast<int32_t>(va_arg(args.list, long)));
    return appendNumber(out, va_arg(args.list, int));
  case u'u':
    if (wide) return appendNumber(out, va_arg(args.list, unsigned long long));
    if (conversion.longs)
      return appendNumber(out, static_cast<uint32_t>(va_arg(args.list, unsigned long)));
    return appendNumber(out, va_arg(args.list, unsigned));
  default: out.append(conversion.letter);
  }
}

UnicodeString formatPlain(const UChar* format, Arguments& args) {
  UnicodeString out;
  while (*format) {
    const UChar* text = format;
    while (*format && *format != u'%') ++format;
    out.append(text, 0, static_cast<int32_t>(format - text));
    if (!*format) break;
    Conversion next = readConversion(format + 1);
    appendConversion(out, next, args);
    format = next.end;
  }
  return out;
}

// Behind flags, pad character "(hhhh)", width, precision and size.
const UChar* skipToLetter(const UChar* at) {
  for (int32_t padding = 0; *at; ++at) {
    if (*at == u'(' && !padding) padding = 6;
    if (!padding && !u_strchr(u"-+ #0123456789$*.hlL", *at)) break;
    if (padding) --padding;
  }
  return at;
}

// The conversion that the format's end breaks off; the end when there is none.
const UChar* brokenConversion(const UChar* format) {
  for (const UChar* at = format;;) {
    while (*at && *at != u'%') ++at;
    if (!*at) return at;
    const UChar* letter = skipToLetter(at + 1);
    if (!*letter) return at;
    at = letter + 1;
  }
}

int32_t formatInto(UChar* buffer, int32_t capacity, const UChar* format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  int32_t length = u_vsnprintf_u(buffer, capacity, format, copy);
  va_end(copy);
  return length;
}

// ICU tells the full length or just the capacity of what does not fit: a result that fills the
// buffer is one that may have been cut.
UnicodeString formatByIcu(const UChar* format, va_list args) {
  UChar stack[FIRST_BUFFER];
  int32_t capacity = FIRST_BUFFER;
  int32_t length = formatInto(stack, capacity, format, args);
  if (length < capacity) return {stack, length < 0 ? 0 : length};
  std::unique_ptr<UChar[]> heap;
  do {
    if (capacity > INT32_MAX / 2) throw std::bad_alloc();
    capacity = 2 * capacity + 1;
    heap = std::make_unique_for_overwrite<UChar[]>(static_cast<size_t>(capacity));
    length = formatInto(heap.get(), capacity, format, args);
  } while (length >= capacity);
  return {heap.get(), length < 0 ? 0 : length};
}

template <typename Number>
UnicodeString printed(const char* format, Number value) {
  std::string text;
  SS::ssprintf(text, format, value);
  return UnicodeString(text.c_str());
}

} // namespace

namespace UCSS {

int32_t vssprintf(UnicodeString& out, const UChar* format, va_list args) {
  if (isPlain(format)) {
    Arguments copy;
    va_copy(copy.list, args);
    out = formatPlain(format, copy);
    va_end(copy.list);
  } else if (const UnicodeString broken(brokenConversion(format)); !broken.isEmpty()) {
    // ICU would read on behind the end of the format.
    UnicodeString whole(format);
    whole.truncate(whole.length() - broken.length());
    vssprintf(out, whole.getTerminatedBuffer(), args);
    out.append(broken);
  } else {
    out = formatByIcu(format, args);
  }
  return out.length();
}

int32_t ssprintf(UnicodeString& out, const UChar* format, ...) {
  va_list args;
  va_start(args, format);
  int32_t length = vssprintf(out, format, args);
  va_end(args);
  return length;
}

int32_t ssprintf(UnicodeString& out, const char* format, ...) {
  UnicodeString wide(format);
  va_list args;
  va_start(args, format);
  int32_t length = vssprintf(out, wide.getTerminatedBuffer(), args);
  va_end(args);
  return length;
}

UnicodeString toString(double value) { return printed("%f", value); }
UnicodeString toString(float value) { return toString(static_cast<double>(value)); }

UnicodeString toString(unsigned long long value) {
  UnicodeString result;
  appendNumber(result, value);
  return result;
}

UnicodeString toString(long long value) {
  UnicodeString result;
  appendNumber(result, value);
  return result;
}

UnicodeString toString(unsigned int value) { return toString(0ULL + value); }
UnicodeString toString(unsigned short value) { return toString(0ULL + value); }
UnicodeString toString(int value) { return toString(0LL + value); }
UnicodeString toString(short value) { return toString(0LL + value); }

UnicodeString encode4XML(const UnicodeString& s) {
  UnicodeString result;
  for (int32_t i = 0; i < s.length(); ++i) {
    switch (s[i]) {
    case u'&': result.append(u"&amp;", 5); break;
    case u'"': result.append(u"&quot;", 6); break;
    case u'\'': result.append(u"&apos;", 6); break;
    case u'<': result.append(u"&lt;", 4); break;
    case u'>': result.append(u"&gt;", 4); break;
    default: result.append(s[i]);
    }
  }
  return result;
}

} // namespace UCSS
