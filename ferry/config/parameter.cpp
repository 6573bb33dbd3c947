#include "ferry/config/parameter.h"

#include <array>
#include <string_view>
#include <unicode/locid.h>
#include <unicode/uchar.h>

namespace {

const std::array<const UChar*, 3> TYPE_WORDS{u"STRING", u"INTEGER", u"BOOLEAN"};

bool IsYes_b(std::string_view s) { return s == "Y" || s == "y"; }

// Upper case that does not depend on where the program runs.
UnicodeString Upper_s(UnicodeString s) { return s.toUpper(icu::Locale::getRoot()); }

} // namespace

CCMEParameter::CCMEParameter(const char* const* row)
    : m_sGroup(row[0]), m_sName(row[1]), m_sDescription(row[3]), m_nType(typeOf(row[2])),
      m_nStoreType(m_nType), m_sDefault(row[4]), m_bRequired(IsYes_b(row[5])), m_bTypeCheck(true),
      m_bQuiet(IsYes_b(row[6])) {}

CCMEParameter::CCMEParameter(const UnicodeString& sGroup, const UnicodeString& sName)
    : m_sGroup(sGroup), m_sName(sName) {}

UnicodeString CCMEParameter::getKey(const UnicodeString& sGroup, const UnicodeString& sName,
                                    bool bCaseSensitive) {
  const UnicodeString sKey = sGroup + u":" + sName;
  return bCaseSensitive ? sKey : Upper_s(sKey);
}

UnicodeString CCMEParameter::typeWord(int nType) {
  const auto n = static_cast<size_t>(nType);
  return n < TYPE_WORDS.size() ? TYPE_WORDS[n] : u"UNKNOWN TYPE";
}

int CCMEParameter::typeOf(const UnicodeString& sWord) {
  for (int nType : {INTEGER, BOOLEAN})
    if (sWord.caseCompare(TYPE_WORDS[nType], -1, U_FOLD_CASE_DEFAULT) == 0) return nType;
  return STRING;
}

bool CCMEParameter::asBoolean() const {
  const UnicodeString sText = Upper_s(value());
  for (const UChar* pYes : {u"YES", u"Y", u"TRUE", u"T", u"1"})
    if (sText == UnicodeString(pYes)) return true;
  return false;
}

void CCMEParameter::setStoreValue(const UnicodeString& sValue) {
  m_sStoreValue = sValue;
  m_bCurrent = true;
  m_bFound = true;
}
