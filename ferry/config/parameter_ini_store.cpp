#include "ferry/config/parameter_ini_store.h"

#include "ferry/config/replace_file.h"
#include "ferry/errors/exception.h"
#include "ferry/text/text_file.h"
#include "ferry/text/uc_string.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <unicode/ucnv.h>
#include <unicode/utf8.h>

namespace {

constexpr int LINE_BUFFER = 1500; // a longer line is read as several

VRK_Exception Failure_ob(const UChar* pId, const UChar* pTemplate, const std::string& sFile) {
  return VRK_Exception("", KELErrorMessage(pId, pTemplate, {UnicodeString(sFile.c_str())}), 0,
                       VRK_CRITICAL_ERROR, false);
}

// Turns the pieces that fgets reads into text. A piece that a long line's end cuts off within a
// character gives the rest of that character to the next piece.
class CLineDecoder {
public:
  UnicodeString Decode_s(const char* pPiece) {
    std::string sBytes = m_sRest + pPiece;
    m_sRest.clear();
    if (m_bFirst && sBytes.starts_with("\xEF\xBB\xBF")) sBytes.erase(0, 3);
    m_bFirst = false;
    if (m_bUTF8 && std::strlen(pPiece) == LINE_BUFFER - 1) HoldBack_v(sBytes);
    return UnicodeString(sBytes.data(), static_cast<int32_t>(sBytes.size()));
  }

private:
  void HoldBack_v(std::string& sBytes) {
    int32_t nWhole = static_cast<int32_t>(sBytes.size());
    const char* pBytes = sBytes.data();
    U8_TRUNCATE_IF_INCOMPLETE(pBytes, 0, nWhole);
    m_sRest = sBytes.substr(nWhole);
    sBytes.resize(nWhole);
  }

  std::string m_sRest;
  bool m_bFirst = true;
  const bool m_bUTF8 = std::strcmp(ucnv_getDefaultName(), "UTF-8") == 0;
};

} // namespace

void CCMEParameterINIStore::read() {
  const TextFilePtr pobFile = OpenTextFile_pob(m_sFile);
  if (!pobFile) throw Failure_ob(u"9113E", u"Failed to open ini file for reading [{0}]", m_sFile);
  CLineDecoder obDecoder;
  UnicodeString sSection;
  char aPiece[LINE_BUFFER];
  while (std::fgets(aPiece, sizeof aPiece, pobFile.get()))
    readLine(UCString(obDecoder.Decode_s(aPiece)).trim(), sSection);
}

void CCMEParameterINIStore::readLine(const UnicodeString& sLine, UnicodeString& sSection) {
  if (sLine.startsWith(u"[")) {
    sSection = UnicodeString(sLine, 1, std::max(0, sLine.length() - 2));
    return;
  }
  const int32_t nEquals = sLine.indexOf(u'=');
  if (sLine.startsWith(u"#") || nEquals < 0) return;
  setFound(sSection, UCString(UnicodeString(sLine, 0, nEquals)).trim(),
           UCString(UnicodeString(sLine, nEquals + 1)).trim());
}

void CCMEParameterINIStore::write() {
  if (!ReplaceFile_b(m_sFile, fileText()))
    throw Failure_ob(u"9112E", u"Failed to open ini file for writing [{0}]", m_sFile);
}

std::string CCMEParameterINIStore::fileText() const {
  std::string sText;
  UnicodeString sPrevious;
  for (const auto& [sKey, obParameter] : m_obParameters) {
    const int32_t nColon = sKey.indexOf(u':');
    const UnicodeString sSection(sKey, 0, nColon < 0 ? sKey.length() : nColon);
    const UnicodeString sName = nColon < 0 ? UnicodeString() : UnicodeString(sKey, nColon + 1);
    if (sSection != sPrevious) sText += "[" + UCSS::ucsToDCP(sSection) + "]\n";
    sPrevious = sSection;
    sText += UCSS::ucsToDCP(sName) + "=" + UCSS::ucsToDCP(obParameter.value()) + "\n";
  }
  return sText;
}
