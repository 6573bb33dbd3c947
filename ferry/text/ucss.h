#pragma once

#include "ferry/text/unicode_string.h"

#include <cstdarg>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Makes UTF-8 the process's default code page, the one that narrow text is converted from and to.
///
/// Call it first in main, before any text is converted and before a second thread starts. Where ICU
/// takes the code page from the environment, LANG=C would make it US-ASCII and lose every byte
/// above 127 of a record. ICU as usually built for Linux is fixed to UTF-8, and the call changes
/// nothing.
void UseUTF8CodePage_v();

/// Helpers over UnicodeString.
///
/// Lengths, positions and indices are in UTF-16 code units, -1 means none. A character is a code
/// point: no function tears a surrogate pair apart. Narrow text is in the process's default code
/// page (UseUTF8CodePage_v). Nothing throws unless it says so, and nothing is shared between calls,
/// so different strings can be worked on by different threads.
namespace UCSS {

// ---- Trimming and filtering: the string is changed in place ----

/// Removes white space (tab, line feed, form feed, carriage return, space) from start up to the
/// first other character. A start outside the string changes nothing.
UnicodeString& LTrim(UnicodeString& s, int32_t start = 0);
/// Removes the same white space from the end.
UnicodeString& RTrim(UnicodeString& s);
/// Remove a leading, or trailing, run of c.
UnicodeString& LStrip(UnicodeString& s, UChar c);
UnicodeString& RStrip(UnicodeString& s, UChar c);

/// Removes every c; returns how many there were.
int32_t Remove(UnicodeString& s, UChar c);

/// Erase every character that is not alphanumeric (a digit), or replace it by the whole replacement
/// unless that is empty; return how many characters were not.
int32_t RemoveNonAlphaNumeric(UnicodeString& s, const UnicodeString& replacement);
int32_t RemoveNonAlphaNumericWithPreserveChars(UnicodeString& s, const UnicodeString& replacement,
                                               const UnicodeString& keep);
int32_t RemoveNonNumeric(UnicodeString& s, const UnicodeString& replacement);

/// Lower-cases s, then title-cases the first character of every word of the default locale.
UnicodeString& toProperCase(UnicodeString& s);

// ---- Searching and splitting ----

/// The first (last) character that is (is not) in set, from start on (or back); -1 when there is
/// none or start is outside the string.
int32_t findFirstOf(const UnicodeString& s, const UnicodeString& set, int32_t start = 0);
int32_t findFirstNotOf(const UnicodeString& s, const UnicodeString& set, int32_t start = 0);
int32_t findLastOf(const UnicodeString& s, const UnicodeString& set);
int32_t findLastNotOf(const UnicodeString& s, const UnicodeString& set, int32_t start);

/// Splits s at runs of separator characters, so that no token is empty. Tokens are appended to out,
/// which is cleared first unless append is set. Returns the number of elements then in out.
int Tokenize(const UnicodeString& s, std::vector<UnicodeString>& out,
             const UnicodeString& separators, bool append = false);

// ---- Formatting ----

/// printf into out; returns its length. %S takes a zero-terminated const UChar* (see
/// getConstUnicodeStringContent), %s a narrow string, integers are 32 bits (%ld and %lu too) unless
/// %lld or %llu. What the format's end breaks off, "100%", stays as it is. The arguments may point
/// into out.
int32_t vssprintf(UnicodeString& out, const UChar* format, va_list args);
int32_t ssprintf(UnicodeString& out, const UChar* format, ...);
int32_t ssprintf(UnicodeString& out, const char* format, ...);

UnicodeString toString(double value); // "%f"
UnicodeString toString(float value);
UnicodeString toString(unsigned long long value);
UnicodeString toString(unsigned int value);
UnicodeString toString(unsigned short value);
UnicodeString toString(long long value);
UnicodeString toString(int value);
UnicodeString toString(short value);

/// A copy with & " ' < > as XML entities.
UnicodeString encode4XML(const UnicodeString& s);

// ---- Numbers ----

/// Leading spaces, then decimal digits of any script up to the first other character. A '-' met
/// while the value is still 0 makes it negative; there is no '+'. Values wrap: modulo 2^32, also
/// where long is wider, atoll modulo 2^64.
long atol(const UnicodeString& s);
int atoi(const UnicodeString& s);
/// The same without a sign: '-' ends the scan.
unsigned long atoul(const UnicodeString& s);
long long atoll(const UnicodeString& s);
/// The same scan, with one '.' among the digits and an exponent after them ("-1.5e3").
double atof(const UnicodeString& s);

/// Only digits; true for the empty string.
bool isNumber(const UnicodeString& s);
/// Optional '-', then digits with at most one '.'; false for "" and "-", true for ".".
bool isDecimal(const UnicodeString& s);

// ---- Comparing ----

/// 1 equal, -1 matched by way of a wildcard, 0 no match. '*' is any run, '_' one character.
int WildMatch(const UnicodeString& pattern, const UnicodeString& text, bool nocase);
/// Percentage of positions at which a and b are equal, of the longer one's length, as a whole
/// number; 0.0 when that is below threshold or both are empty.
double strMatchPercentage(const UnicodeString& a, const UnicodeString& b, double threshold);
/// Whether a and b, without case, differ only by exchanged neighbours or by an exchange of the
/// first and last character.
bool checkTransposition(const UnicodeString& a, const UnicodeString& b);
bool isASCII_7(const UnicodeString& s);

// ---- Conversion of narrow text ----

/// From the default code page. For many strings one after another: s keeps its memory. Throws
/// std::bad_alloc, where a UnicodeString made of the text would be bogus.
void dcpToUCS(UnicodeString& s, std::string_view text);

// ---- Conversion to narrow text ----

/// To the default code page; what it cannot hold becomes its substitution character.
std::string ucsToDCP(const UnicodeString& s);
/// The same, for printing.
std::string ucToString(const UnicodeString& s);
/// To UTF-8; a lone surrogate is an error.
std::string ucsToUTF8(const UnicodeString& s, UErrorCode& status);
/// The same; throws VRK_Exception (severity 4, text: ICU's name of the error). In ferry/errors.
std::string ucsToUTF8(const UnicodeString& s);

/// The code units of s, zero-terminated, for %S; valid until s changes or ends. It may write the
/// terminator behind s's text, so two threads must not call it on one string at the same time.
const UChar* getConstUnicodeStringContent(const UnicodeString& s);

} // namespace UCSS
