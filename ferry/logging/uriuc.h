#pragma once

#include "ferry/text/ucss.h"

#include <cstdint>
#include <unordered_map>

/// A destination address, such as "console://stdout/?style=bare" or "file:///var/log/a.log?keep=3",
/// taken apart.
///
/// Nothing is rejected: whatever has no better place lands in some field, and the user of the
/// record judges. "%" with two hexadecimal digits stands for the character with that code
/// everywhere but in the scheme. For the scheme "file", a host of "." or ".." becomes the start of
/// a relative path.
class URIUC {
public:
  struct UnicodeStringHasherObject {
    size_t operator()(const UnicodeString& s) const { return static_cast<uint32_t>(s.hashCode()); }
  };
  using Query = std::unordered_map<UnicodeString, UnicodeString, UnicodeStringHasherObject>;

  explicit URIUC(const UnicodeString& sText);

  /// True for an http address with a plain host, and optionally a port and a path.
  static bool isValidHTTPURI(const UnicodeString& sText);

  const UnicodeString& Scheme_rob() const { return m_sScheme; }
  const UnicodeString& User_rob() const { return m_sUser; }
  const UnicodeString& Password_rob() const { return m_sPassword; }
  const UnicodeString& Host_rob() const { return m_sHost; }
  const UnicodeString& Port_rob() const { return m_sPort; }
  const UnicodeString& Path_rob() const { return m_sPath; }
  /// The address as it was given.
  const UnicodeString& Text_rob() const { return m_sText; }
  const Query& Query_rob() const { return m_obQuery; }
  /// The value of a query parameter, null when there is none; it lives as long as the record.
  const UnicodeString* FindQuery_pob(const UnicodeString& sName) const;

private:
  class Parser;
  void FixFilePath_v();

  Query m_obQuery{1024};
  UnicodeString m_sScheme;
  UnicodeString m_sUser;
  UnicodeString m_sPassword;
  UnicodeString m_sHost;
  UnicodeString m_sPort;
  UnicodeString m_sPath = u"/";
  UnicodeString m_sText;
};
