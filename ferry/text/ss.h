#pragma once

#include <cstdarg>
#include <string>
#include <vector>

/// Helpers over narrow strings. Characters are bytes, classified and case-mapped by the C library's
/// locale. Strings taken by reference are changed in place. Nothing fails other than by its result,
/// and nothing is shared between calls: different strings can be worked on by different threads.
namespace SS {

/// Copies at most n - 1 bytes and always terminates within n; n of 0 or less copies nothing.
char* strncpy(char* dst, const char* src, int n);
/// out = the first n bytes of src, fewer when src ends before.
void sstrncpy(std::string& out, const char* src, int n);

/// Whether two bytes, or two strings, are equal but for case. Strings are compared up to a NUL.
bool nocase_compare(char a, char b);
bool CompareNoCase(const std::string& a, const std::string& b);
/// 1 equal, -1 matched by way of a wildcard, 0 no match. '*' is any run, '_' one byte.
int WildMatch(const std::string& pattern, const std::string& text, bool nocase);

/// out = in, filled up to width bytes on its right or left side. A longer in stays as it is.
void CharFill(std::string& out, const std::string& in, char fill, int width, bool right);
/// Zeros on the left; a sign does not move in front of them: -5 at width 4 is "00-5".
void ZFill(std::string& out, const std::string& in, int width);
void ZFill(std::string& out, int value, int width);

/// printf into out; returns the formatted length. When it cannot be formatted, out says so and its
/// length is returned. The arguments may point into out.
int vssprintf(std::string& out, const char* format, va_list args)
    __attribute__((format(printf, 2, 0)));
int ssprintf(std::string& out, const char* format, ...) __attribute__((format(printf, 2, 3)));

/// A copy with & " ' < > as XML entities.
std::string encode4XML(const char* s);

/// Removes every c; returns how many there were.
int Remove(std::string& s, char c);
/// Erase every byte that is not a digit (a letter or digit), or replace it by the whole replacement
/// unless that is empty. Return the length of s on entry.
int RemoveNonNumeric(std::string& s, const std::string& replacement);
int RemoveNonAlphaNumeric(std::string& s, const std::string& replacement);
/// Replaces every find, left to right, not looking into what was inserted; returns how many. An
/// empty find changes nothing.
int Replace(std::string& s, std::string find, std::string with);

/// Upper-cases the first byte and each byte after a space, lower-cases the others; returns whether
/// the last byte was a space.
bool ProperCase(std::string& s);
void MakeLower(std::string& s);
void MakeUpper(std::string& s);

/// The sides differ on purpose: line ends are trimmed on the right only. Each returns the number of
/// bytes removed.
int RTrim(std::string& s); // tab, line feed, carriage return, space
int LTrim(std::string& s); // tab, space
int Trim(std::string& s);

/// Splits s at runs of delimiter bytes, so that no token is empty. Tokens are appended to out,
/// which is cleared first unless append is set. Returns the number of elements then in out.
int Tokenize(const std::string& s, std::vector<std::string>& out, const std::string& delimiters,
             bool append);

} // namespace SS
