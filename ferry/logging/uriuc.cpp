#include "ferry/logging/uriuc.h"

#include <unicode/regex.h>
#include <unicode/uchar.h>

namespace {

// The value of a hexadecimal digit, -1 for any other character.
int HexValue_n(UChar c) { return c < 0x80 ? u_digit(c, 16) : -1; }

} // namespace

// One pass over the text, a state for each region of an address.
class URIUC::Parser {
public:
  explicit Parser(URIUC& obURI) : m_obURI(obURI), m_sText(obURI.m_sText) {}
  void Run_v();

private:
  enum class State { Scheme, Slash, Authority, Port, Path, Key, Value };

  void Step_v(UChar c);
  void Scheme_v(UChar c);
  void Slash_v(UChar c);
  void Authority_v(UChar c);
  void Colon_v();
  void Value_v(UChar c);
  void Go_v(State eState);
  void GoOrAppend_v(bool bGo, State eState, UnicodeString& sTarget);
  void AppendDecoded_v(UnicodeString& sTarget);
  bool UserAhead_b() const;
  void StorePending_v();

  URIUC& m_obURI;
  const UnicodeString& m_sText;
  int32_t m_nPos = 0;
  State m_eState = State::Scheme;
  UnicodeString m_sName;
  UnicodeString m_sValue;
};

void URIUC::Parser::Run_v() {
  while (m_nPos < m_sText.length()) Step_v(m_sText.charAt(m_nPos));
  if (!m_sName.isEmpty()) StorePending_v();
}

void URIUC::Parser::Step_v(UChar c) {
  switch (m_eState) {
  case State::Scheme: return Scheme_v(c);
  case State::Slash: return Slash_v(c);
  case State::Authority: return Authority_v(c);
  case State::Port: return GoOrAppend_v(c == u'/', State::Path, m_obURI.m_sPort);
  case State::Path: return GoOrAppend_v(c == u'?', State::Key, m_obURI.m_sPath);
  case State::Key: return GoOrAppend_v(c == u'=', State::Value, m_sName);
  case State::Value: return Value_v(c);
  }
}

void URIUC::Parser::Scheme_v(UChar c) {
  if (c == u'/') return Go_v(State::Slash);
  if (c != u':') m_obURI.m_sScheme.append(c);
  ++m_nPos;
}

void URIUC::Parser::Slash_v(UChar c) {
  if (c == u'/') return Go_v(State::Authority);
  AppendDecoded_v(m_obURI.m_sPath);
  m_eState = State::Path;
}

void URIUC::Parser::Authority_v(UChar c) {
  if (c == u':') return Colon_v();
  if (c != u'@') return GoOrAppend_v(c == u'/', State::Path, m_obURI.m_sHost);
  m_obURI.m_sPassword = m_obURI.m_sHost;
  m_obURI.m_sHost.remove();
  ++m_nPos;
}

void URIUC::Parser::Colon_v() {
  if (!UserAhead_b()) return Go_v(State::Port);
  m_obURI.m_sUser = m_obURI.m_sHost;
  m_obURI.m_sHost.remove();
  ++m_nPos;
}

void URIUC::Parser::Value_v(UChar c) {
  if (c != u'&' && c != u';') return AppendDecoded_v(m_sValue);
  StorePending_v();
  Go_v(State::Key);
}

void URIUC::Parser::Go_v(State eState) {
  m_eState = eState;
  ++m_nPos;
}

void URIUC::Parser::GoOrAppend_v(bool bGo, State eState, UnicodeString& sTarget) {
  if (bGo)
    Go_v(eState);
  else
    AppendDecoded_v(sTarget);
}

void URIUC::Parser::AppendDecoded_v(UnicodeString& sTarget) {
  const UChar c = m_sText.charAt(m_nPos++);
  const int nHigh = HexValue_n(m_sText.charAt(m_nPos));
  const int nLow = HexValue_n(m_sText.charAt(m_nPos + 1));
  if (c != u'%' || nHigh < 0 || nLow < 0) {
    sTarget.append(c);
    return;
  }
  sTarget.append(static_cast<UChar>(nHigh * 16 + nLow));
  m_nPos += 2;
}

// Whether what follows the colon ends in "@", so that a user stands before it.
bool URIUC::Parser::UserAhead_b() const {
  const int32_t nAt = m_sText.indexOf(u'@', m_nPos + 1);
  const int32_t nSlash = m_sText.indexOf(u'/', m_nPos + 1);
  return nAt >= 0 && (nSlash < 0 || nAt < nSlash);
}

void URIUC::Parser::StorePending_v() {
  m_obURI.m_obQuery.insert_or_assign(m_sName, m_sValue);
  m_sName.remove();
  m_sValue.remove();
}

URIUC::URIUC(const UnicodeString& sText) : m_sText(sText) {
  Parser(*this).Run_v();
  if (m_sScheme == u"file") FixFilePath_v();
}

void URIUC::FixFilePath_v() {
  if ((m_sHost == u"." || m_sHost == u"..") && !m_sPath.isEmpty()) {
    m_sPath.insert(0, m_sHost);
    m_sHost.remove();
  }
  // A drive letter, or a path that the address says is relative.
  if (m_sPath.indexOf(u':') < 0 && !m_sText.startsWith(u"file:/.")) return;
  UCSS::LStrip(m_sPath, u'/');
}

const UnicodeString* URIUC::FindQuery_pob(const UnicodeString& sName) const {
  const auto it = m_obQuery.find(sName);
  return it == m_obQuery.end() ? nullptr : &it->second;
}

bool URIUC::isValidHTTPURI(const UnicodeString& sText) {
  UErrorCode eStatus = U_ZERO_ERROR;
  const UBool bMatches =
      icu::RegexMatcher(u"^[Hh][Tt][Tt][Pp]://([A-Za-z0-9.][A-Za-z0-9\\-.]*)(:[0-9][0-9]*)?(/.*)?$",
                        sText, 0, eStatus)
          .matches(eStatus);
  return U_SUCCESS(eStatus) && bMatches;
}
