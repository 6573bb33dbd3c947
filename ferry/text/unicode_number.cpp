#include "ferry/text/ucss.h"

#include <cstdlib>
#include <locale.h>
#include <unicode/uchar.h>
#include <unicode/utf16.h>

namespace {

// Scans digits as the header says. Unsigned arithmetic makes the wrap-around defined.
template <typename Unsigned>
Unsigned scanNumber(const UnicodeString& s, bool allowMinus) {
  Unsigned value = 0;
  bool negative = false;
  bool digitRead = false;
  for (int32_t i = 0; i < s.length();) {
    UChar32 c = s.char32At(i);
    i += U16_LENGTH(c);
    if (c == u' ' && !digitRead) continue;
    if (c == u'-' && allowMinus && value == 0) {
      negative = true;
      continue;
    }
    int32_t digit = u_digit(c, 10);
    if (digit < 0) break;
    value = value * 10 + static_cast<Unsigned>(digit);
    digitRead = true;
  }
  return negative ? Unsigned{0} - value : value;
}

// The number at the start of s in plain ASCII, without its sign.
class DecimalScan {
public:
  explicit DecimalScan(const UnicodeString& s) : m_sText(s) {
    skipBlanksAndSigns();
    takeDigits();
    if (peek() == u'.') {
      take('.');
      takeDigits();
    }
    takeExponent();
  }

  double value() const {
    // The program's locale may have another decimal point.
    static const locale_t plain = newlocale(LC_ALL_MASK, "C", nullptr);
    double result = strtod_l(m_sDigits.c_str(), nullptr, plain);
    return m_bNegative ? -result : result;
  }

private:
  UChar32 peek(int32_t ahead = 0) const { return m_sText.char32At(m_nAt + ahead); }
  void take(char c) {
    m_sDigits += c;
    m_nAt += 1;
  }
  void skipBlanksAndSigns() {
    for (; peek() == u' ' || peek() == u'-'; ++m_nAt) m_bNegative |= peek() == u'-';
  }
  void takeDigits() {
    for (int32_t digit; m_nAt < m_sText.length() && (digit = u_digit(peek(), 10)) >= 0;) {
      m_nAt += U16_LENGTH(peek());
      m_sDigits += static_cast<char>('0' + digit);
    }
  }
  void takeExponent() {
    if (peek() != u'e' && peek() != u'E') return;
    bool sign = peek(1) == u'-' || peek(1) == u'+';
    if (u_digit(peek(sign ? 2 : 1), 10) < 0) return;
    take('e');
    if (sign) take(static_cast<char>(peek()));
    takeDigits();
  }

  const UnicodeString& m_sText;
  int32_t m_nAt = 0;
  bool m_bNegative = false;
  std::string m_sDigits;
};

} // namespace

namespace UCSS {

long atol(const UnicodeString& s) { return atoi(s); }

int atoi(const UnicodeString& s) { return static_cast<int>(scanNumber<uint32_t>(s, true)); }

unsigned long atoul(const UnicodeString& s) { return scanNumber<uint32_t>(s, false); }

long long atoll(const UnicodeString& s) {
  return static_cast<long long>(scanNumber<uint64_t>(s, true));
}

double atof(const UnicodeString& s) { return DecimalScan(s).value(); }

bool isNumber(const UnicodeString& s) {
  for (int32_t i = 0; i < s.length(); i += U16_LENGTH(s.char32At(i)))
    if (!u_isdigit(s.char32At(i))) return false;
  return true;
}

bool isDecimal(const UnicodeString& s) {
  int32_t start = s.startsWith(u"-", 1) ? 1 : 0;
  int32_t point = s.indexOf(u'.', start);
  if (start == s.length()) return false;
  if (point < 0) return isNumber(s.tempSubString(start));
  return isNumber(s.tempSubStringBetween(start, point)) && isNumber(s.tempSubString(point + 1));
}

} // namespace UCSS
