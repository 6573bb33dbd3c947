#include "ferry/xml/ccme_xml.h"
#include "ferry/xml/xml_library.h"
#include "ferry/xml/xpath_evaluator.h"

#include <unicode/uchar.h>
#include <vector>

namespace {

const UnicodeString OPERATORS(u"/|+-*=<>");
const UnicodeString LENGTH(u"string-length");

[[noreturn]] void refuse(const UnicodeString& text) { throw xmlError("safeExpression", text); }

bool isSpace(UChar c) { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n'; }

bool endsInLength(const UnicodeString& text) {
  int32_t end = text.length();
  while (end > 0 && isSpace(text.charAt(end - 1))) --end;
  return end >= LENGTH.length() && !text.compare(end - LENGTH.length(), LENGTH.length(), LENGTH);
}

// Copies an expression and counts what makes the libraries recurse: a bracket until it is closed,
// an operator or step until the end. What looks like an operator within a name counts as well.
//
// On the way the argument of string-length becomes text explicitly. It is the one place where the
// libraries write out a number that no factory has seen, however many digits it has.
class Copier {
public:
  void copy(UChar c) {
    if (!m_nQuote)
      mark(c);
    else if (c == m_nQuote)
      m_nQuote = 0;
    m_sCopy.append(c);
  }
  const UnicodeString& result() const { return m_sCopy; }

private:
  void mark(UChar c) {
    if (m_bArgument && !isSpace(c)) openText(c);
    if (c == u'\'' || c == u'"')
      m_nQuote = c;
    else if (c == u'(' || c == u'[')
      open(c);
    else if (c == u')' || c == u']')
      close();
    else if (OPERATORS.indexOf(c) >= 0)
      ++m_nOperators;
    if (m_nBrackets > MAX_XPATH_DEPTH || m_nOperators > MAX_XPATH_OPERATORS)
      refuse(u"The XPath expression is nested too deeply");
    m_nDigits = u_isdigit(c) ? m_nDigits + 1 : 0;
    if (m_nDigits > MAX_XPATH_DIGITS) refuse(u"A number in the XPath expression is too long");
  }

  void open(UChar c) {
    ++m_nBrackets;
    m_bArgument = c == u'(' && endsInLength(m_sCopy);
  }

  void openText(UChar c) {
    m_bArgument = false;
    if (c == u')') return; // there is no argument
    m_sCopy.append(u"string(", -1);
    m_aTexts.push_back(m_nBrackets);
  }

  void close() {
    if (!m_aTexts.empty() && m_aTexts.back() == m_nBrackets) {
      m_sCopy.append(u')');
      m_aTexts.pop_back();
    }
    --m_nBrackets;
  }

  UnicodeString m_sCopy;
  UChar m_nQuote = 0; // that is open
  int m_nBrackets = 0;
  int m_nOperators = 0;
  int m_nDigits = 0;
  bool m_bArgument = false;  // of string-length starts here
  std::vector<int> m_aTexts; // brackets open where one did
};

} // namespace

UnicodeString safeExpression(const UnicodeString& xpath) {
  if (wholeText(xpath).length() > MAX_XPATH_LENGTH) refuse(u"The XPath expression is too long");
  Copier copier;
  for (int32_t i = 0; i < xpath.length(); ++i) copier.copy(xpath.charAt(i));
  return copier.result();
}
