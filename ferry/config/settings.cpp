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

constexpr UChar APP_NAME[] = u"APP_NAME";
constexpr UChar APP_VER[] = u"APP_VER";
constexpr UChar PROD_DESC[] = u"PROD_DESC";
constexpr UChar APP_DESC[] = u"APP_DESC";
constexpr UChar MODULE_NAME[] = u"CME_MODULE";
constexpr UChar CONFIG_FILE[] = u"ConfigFile";
constexpr UChar ROUTEFILE[] = u"Routefile";
constexpr UChar DATAFILE[] = u"Datafile";
constexpr UChar OUTPUT_TRANSPORT[] = u"OutputTransport";
constexpr UChar ADMIN_TRANSPORT[] = u"AdminTransport";
constexpr UChar TRANSPORT[] = u"TRANSPORT";

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

void GetAppName_v(UnicodeString& sValue) { GetOr_v(APP_NAME, sValue, u"UNKNOWN_APP"); }
void GetAppName_v(std::string& sValue) {
  UnicodeString sWide;
  GetAppName_v(sWide);
  sValue = UCSS::ucsToDCP(sWide);
}
void SetAppName_v(const UnicodeString& sValue) { Set_v(APP_NAME, sValue); }
void SetAppName_v(const std::string& sValue) { SetAppName_v(Wide_s(sValue)); }

void GetAppVer_v(UnicodeString& sValue) { GetOr_v(APP_VER, sValue, u"UNKNOWN_VER"); }
void SetAppVer_v(const UnicodeString& sValue) { Set_v(APP_VER, sValue); }

void GetProdDesc_v(UnicodeString& sValue) { Get_b(PROD_DESC, sValue); }
void SetProdDesc_v(const UnicodeString& sValue) { Set_v(PROD_DESC, sValue); }

void GetAppDesc_v(UnicodeString& sValue) { Get_b(APP_DESC, sValue); }
void SetAppDesc_v(const UnicodeString& sValue) { Set_v(APP_DESC, sValue); }

bool GetModuleName_b(UnicodeString& sValue) { return Get_b(MODULE_NAME, sValue); }
bool GetModuleName_b(std::string& sValue) { return GetNarrow_b(MODULE_NAME, sValue); }
void SetModuleName_v(const UnicodeString& sValue) {
  UnicodeString sModule(sValue, UCSS::findLastOf(sValue, u"/\\") + 1);
  if (sModule.endsWith(u".exe")) sModule.truncate(sModule.length() - 4);
  Set_v(MODULE_NAME, sModule);
}
void SetModuleName_v(const std::string& sValue) { SetModuleName_v(Wide_s(sValue)); }

bool GetConfigFile_b(UnicodeString& sValue) {
  if (Get_b(CONFIG_FILE, sValue)) return true;
  const bool bNamed = GetModuleName_b(sValue);
  sValue += u".ini";
  return bNamed;
}
void SetConfigFile_v(const UnicodeString& sValue) { Set_v(CONFIG_FILE, sValue); }

bool GetRoutefile_b(UnicodeString& sValue) { return Get_b(ROUTEFILE, sValue); }
bool GetRoutefile_b(std::string& sValue) { return GetNarrow_b(ROUTEFILE, sValue); }
void SetRoutefile_v(const UnicodeString& sValue) { Set_v(ROUTEFILE, sValue); }
void SetRoutefile_v(const std::string& sValue) { SetRoutefile_v(Wide_s(sValue)); }

bool GetDatafile_b(UnicodeString& sValue) { return Get_b(DATAFILE, sValue); }
bool GetDatafile_b(std::string& sValue) { return GetNarrow_b(DATAFILE, sValue); }
void SetDatafile_v(const UnicodeString& sValue) { Set_v(DATAFILE, sValue); }
void SetDatafile_v(const std::string& sValue) { SetDatafile_v(Wide_s(sValue)); }

bool GetOutputTransport_b(UnicodeString& sValue) { return Get_b(OUTPUT_TRANSPORT, sValue); }
void SetOutputTransport_v(const UnicodeString& sValue) { Set_v(OUTPUT_TRANSPORT, sValue); }

bool GetAdmintransport_b(UnicodeString& sValue) { return Get_b(ADMIN_TRANSPORT, sValue); }
bool GetAdmintransport_b(std::string& sValue) { return GetNarrow_b(ADMIN_TRANSPORT, sValue); }
void SetAdmintransport_v(const UnicodeString& sValue) { Set_v(ADMIN_TRANSPORT, sValue); }
void SetAdmintransport_v(const std::string& sValue) { SetAdmintransport_v(Wide_s(sValue)); }

bool GetTransport_b(UnicodeString& sValue, int n) {
  return Get_b(Numbered_s(TRANSPORT, n), sValue);
}
bool GetTransport_b(std::string& sValue, int n) {
  return GetNarrow_b(Numbered_s(TRANSPORT, n), sValue);
}
void SetTransport_v(const UnicodeString& sValue, int n) { Set_v(Numbered_s(TRANSPORT, n), sValue); }
void SetTransport_v(const std::string& sValue, int n) { SetTransport_v(Wide_s(sValue), n); }

void SetNextTransport_v(const UnicodeString& sValue) {
  CGlobalSettings::obMap.SetNext_v(TRANSPORT, sValue);
}
void SetNextTransport_v(const std::string& sValue) { SetNextTransport_v(Wide_s(sValue)); }
