// The least that a program which keeps its text in ICU strings costs from start to exit.
#include <cstdio>
#include <string>
#include <unicode/ucnv.h>
#include <unicode/unistr.h>

int main() {
  ::ucnv_setDefaultName("UTF-8");
  const icu::UnicodeString text("hello, world");
  std::string out;
  text.toUTF8String(out);
  return std::puts(out.c_str()) < 0 ? 1 : 0;
}
