#pragma once

#include "ferry/text/ucss.h"

#include <map>
#include <shared_mutex>
#include <string>

/// Named text settings. Any thread may read and write at any time; values are copied in and out.
class CSettings {
public:
  virtual ~CSettings() = default;

  /// False, and an empty value, when there is no such setting.
  bool Get_b(const UnicodeString& sName, UnicodeString& sValue) const;
  void Set_v(const UnicodeString& sName, const UnicodeString& sValue);
  /// Sets the first of the names "<prefix>1", "<prefix>2", ... that is not set yet.
  void SetNext_v(const UnicodeString& sPrefix, const UnicodeString& sValue);

private:
  mutable std::shared_mutex m_obLock; // guards the map
  std::map<UnicodeString, UnicodeString> m_obValues;
};

/// Holds the settings of the process. The functions below are the way to them.
class CGlobalSettings {
public:
  static CSettings obMap;
};

// Readers. The `_b` ones return false, with an empty result, when the setting was never made; the
// `_v` ones give a default then: "UNKNOWN_APP", "UNKNOWN_VER", or nothing. The narrow forms convert
// from and to the default code page.

void GetAppName_v(UnicodeString& sValue);
void GetAppName_v(std::string& sValue);
void GetAppVer_v(UnicodeString& sValue);
void GetProdDesc_v(UnicodeString& sValue);
void GetAppDesc_v(UnicodeString& sValue);
bool GetModuleName_b(UnicodeString& sValue);
bool GetModuleName_b(std::string& sValue);
/// Without a setting: the module name with ".ini", and whether there is a module name.
bool GetConfigFile_b(UnicodeString& sValue);
bool GetRoutefile_b(UnicodeString& sValue);
bool GetRoutefile_b(std::string& sValue);
bool GetDatafile_b(UnicodeString& sValue);
bool GetDatafile_b(std::string& sValue);
bool GetOutputTransport_b(UnicodeString& sValue);
bool GetAdmintransport_b(UnicodeString& sValue);
bool GetAdmintransport_b(std::string& sValue);
bool GetTransport_b(UnicodeString& sValue, int n);
bool GetTransport_b(std::string& sValue, int n);

// Writers.

void SetAppName_v(const UnicodeString& sValue);
void SetAppName_v(const std::string& sValue);
void SetAppVer_v(const UnicodeString& sValue);
void SetProdDesc_v(const UnicodeString& sValue);
void SetAppDesc_v(const UnicodeString& sValue);
/// Keeps of a program's path what names the module: no folders, no ".exe".
void SetModuleName_v(const UnicodeString& sValue);
void SetModuleName_v(const std::string& sValue);
void SetConfigFile_v(const UnicodeString& sValue);
void SetRoutefile_v(const UnicodeString& sValue);
void SetRoutefile_v(const std::string& sValue);
void SetDatafile_v(const UnicodeString& sValue);
void SetDatafile_v(const std::string& sValue);
void SetOutputTransport_v(const UnicodeString& sValue);
void SetAdmintransport_v(const UnicodeString& sValue);
void SetAdmintransport_v(const std::string& sValue);
void SetTransport_v(const UnicodeString& sValue, int n);
void SetTransport_v(const std::string& sValue, int n);
/// Stores the transport under the first free number from 1 on.
void SetNextTransport_v(const UnicodeString& sValue);
void SetNextTransport_v(const std::string& sValue);
