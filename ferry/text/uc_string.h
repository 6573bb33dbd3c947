#pragma once

#include "ferry/text/unicode_string.h"

/// A UnicodeString that trims and upper-cases itself. White space is as in UCSS::LTrim. Narrow text
/// is in the default code page.
class UCString : public UnicodeString {
public:
  UCString() = default;
  UCString(const char* text) : UnicodeString(text) {}
  /// Takes the first length bytes of text.
  UCString(const char* text, int length) : UnicodeString(text, length) {}
  UCString(const UnicodeString& text) : UnicodeString(text) {}
  UCString(const UCString&) = default;

  UCString& operator=(const UCString&) = default;
  UCString& operator=(const UnicodeString& text);

  UCString& rTrim();
  UCString& trim();
  /// Removes white space from index start on. Throws std::invalid_argument for a negative start.
  UCString& lTrim(int start = 0);
  UCString& toUpper();
};
