#include "ferry/config/settings.h"

#include "ferry/text/unicode_string.h"

#include <mutex>

CSettings CGlobalSettings::obMap;

namespace {

UnicodeString Numbered_s(UnicodeString sPrefix, int n) {
  UnicodeString sName;
  UCSS::ssprintf(sName, u"%S%d", sPrefix.getTerminatedBuffer(), n);
  return sName;
}

} // namespace

bool CSettings::Get_b(const UnicodeString& sName, UnicodeString& sValue) const {
  sValue.remove();
  const std::shared_lock obGuard(m_obLock);
  const auto it = m_obValues.find(sName);
  if (it == m_obValues.end()) return false;
  sValue = OwnCopy_s(it->second);
  return true;
}

void CSettings::Set_v(const UnicodeString& sName, const UnicodeString& sValue) {
  const std::unique_lock obGuard(m_obLock);
  m_obValues[OwnCopy_s(sName)] = OwnCopy_s(sValue);
}

// The search and the entry are one step, or two threads would take the same number.
void CSettings::SetNext_v(const UnicodeString& sPrefix, const UnicodeString& sValue) {
  const std::unique_lock obGuard(m_obLock);
  int n = 1;
  while (m_obValues.contains(Numbered_s(sPrefix, n))) ++n;
  m_obValues[Numbered_s(sPrefix, n)] = OwnCopy_s(sValue);
}

namespace {

constexpr UChar kAppName[] = u"APP_NAME";
constexpr UChar kAppVer[] = u"APP_VER";
constexpr UChar kProdDesc[] = u"PROD_DESC";
constexpr UChar kAppDesc[] = u"APP_DESC";
constexpr UChar kModuleName[] = u"CME_MODULE";
constexpr UChar kConfigFile[] = u"ConfigFile";
constexpr UChar kRoutefile[] = u"Routefile";
constexpr UChar kDatafile[] = u"Datafile";
constexpr UChar kOutputTransport[] = u"OutputTransport";
constexpr UChar kAdminTransport[] = u"AdminTransport";
constexpr UChar kTransport[] = u"TRANSPORT";

bool Get_b(const UnicodeString& sName, UnicodeString& sValue) {
  return CGlobalSettings::obMap.Get_b(sName, sValue);
}

void Set_v(const UnicodeString& sName, const UnicodeString& sValue) {
  CGlobalSettings::obMap.Set_v(sName, sValue);
}

void GetOr_v(const UnicodeString& sName, UnicodeString& sValue, const UChar* pDefault) {
  if (!Get_b(sName, sValue)) sValue = pDefault;
}

UnicodeString Wide_s(const std::string& s) {
  return UnicodeString(s.data(), static_cast<int32_t>(s.size()));
}

bool GetNarrow_b(const UnicodeString& sName, std::string& sValue) {
  UnicodeString sWide;
  const bool bFound = Get_b(sName, sWide);
  sValue = UCSS::ucsToDCP(sWide);
  return bFound;
}

} // namespace

void GetAppName_v(UnicodeString& sValue) { GetOr_v(kAppName, sValue, u"UNKNOWN_APP"); }
void GetAppName_v(std::string& sValue) {
  UnicodeString sWide;
  GetAppName_v(sWide);
  sValue = UCSS::ucsToDCP(sWide);
}
void SetAppName_v(const UnicodeString& sValue) { Set_v(kAppName, sValue); }
void SetAppName_v(const std::string& sValue) { SetAppName_v(Wide_s(sValue)); }

void GetAppVer_v(UnicodeString& sValue) { GetOr_v(kAppVer, sValue, u"UNKNOWN_VER"); }
void SetAppVer_v(const UnicodeString& sValue) { Set_v(kAppVer, sValue); }

void GetProdDesc_v(UnicodeString& sValue) { Get_b(kProdDesc, sValue); }
void SetProdDesc_v(const UnicodeString& sValue) { Set_v(kProdDesc, sValue); }

void GetAppDesc_v(UnicodeString& sValue) { Get_b(kAppDesc, sValue); }
void SetAppDesc_v(const UnicodeString& sValue) { Set_v(kAppDesc, sValue); }

bool GetModuleName_b(UnicodeString& sValue) { return Get_b(kModuleName, sValue); }
bool GetModuleName_b(std::string& sValue) { return GetNarrow_b(kModuleName, sValue); }
void SetModuleName_v(const UnicodeString& sValue) {
  UnicodeString sModule(sValue, UCSS::findLastOf(sValue, u"/\\") + 1);
  if (sModule.endsWith(u".exe")) sModule.truncate(sModule.length() - 4);
  Set_v(kModuleName, sModule);
}
void SetModuleName_v(const std::string& sValue) { SetModuleName_v(Wide_s(sValue)); }

bool GetConfigFile_b(UnicodeString& sValue) {
  if (Get_b(kConfigFile, sValue)) return true;
  const bool bNamed = GetModuleName_b(sValue);
  sValue += u".ini";
  return bNamed;
}
void SetConfigFile_v(const UnicodeString& sValue) { Set_v(kConfigFile, sValue); }

bool GetRoutefile_b(UnicodeString& sValue) { return Get_b(kRoutefile, sValue); }
bool GetRoutefile_b(std::string& sValue) { return GetNarrow_b(kRoutefile, sValue); }
void SetRoutefile_v(const UnicodeString& sValue) { Set_v(kRoutefile, sValue); }
void SetRoutefile_v(const std::string& sValue) { SetRoutefile_v(Wide_s(sValue)); }

bool GetDatafile_b(UnicodeString& sValue) { return Get_b(kDatafile, sValue); }
bool GetDatafile_b(std::string& sValue) { return GetNarrow_b(kDatafile, sValue); }
void SetDatafile_v(const UnicodeString& sValue) { Set_v(kDatafile, sValue); }
void SetDatafile_v(const std::string& sValue) { SetDatafile_v(Wide_s(sValue)); }

bool GetOutputTransport_b(UnicodeString& sValue) { return Get_b(kOutputTransport, sValue); }
void SetOutputTransport_v(const UnicodeString& sValue) { Set_v(kOutputTransport, sValue); }

bool GetAdmintransport_b(UnicodeString& sValue) { return Get_b(kAdminTransport, sValue); }
bool GetAdmintransport_b(std::string& sValue) { return GetNarrow_b(kAdminTransport, sValue); }
void SetAdmintransport_v(const UnicodeString& sValue) { Set_v(kAdminTransport, sValue); }
void SetAdmintransport_v(const std::string& sValue) { SetAdmintransport_v(Wide_s(sValue)); }

bool GetTransport_b(UnicodeString& sValue, int n) {
  return Get_b(Numbered_s(kTransport, n), sValue);
}
bool GetTransport_b(std::string& sValue, int n) {
  return GetNarrow_b(Numbered_s(kTransport, n), sValue);
}
void SetTransport_v(const UnicodeString& sValue, int n) {
  Set_v(Numbered_s(kTransport, n), sValue);
}
void SetTransport_v(const std::string& sValue, int n) { SetTransport_v(Wide_s(sValue), n); }

void SetNextTransport_v(const UnicodeString& sValue) {
  CGlobalSettings::obMap.SetNext_v(kTransport, sValue);
}
void SetNextTransport_v(const std::string& sValue) { SetNextTransport_v(Wide_s(sValue)); }
