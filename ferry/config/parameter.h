#pragma once

#include "ferry/text/ucss.h"

/// One configuration parameter: what the program declares about it, and what was found in the
/// store's back end. A plain record; copies are independent.
class CCMEParameter {
public:
  enum Type { STRING = 0, INTEGER = 1, BOOLEAN = 2 };

  CCMEParameter() = default;
  /// From one row of a declaration table: group ("*" for the store's active group), name, type
  /// word, description, default, required ("Y"), quiet ("Y").
  explicit CCMEParameter(const char* const* row);
  /// A parameter that no row declared, as the back end found it.
  CCMEParameter(const UnicodeString& sGroup, const UnicodeString& sName);

  /// The key that a parameter is filed under: group ":" name, upper-cased unless the store tells
  /// cases apart.
  static UnicodeString getKey(const UnicodeString& sGroup, const UnicodeString& sName,
                              bool bCaseSensitive);
  /// The word for a type; a word in any case for a type, unknown ones mean STRING.
  static UnicodeString typeWord(int nType);
  static int typeOf(const UnicodeString& sWord);

  /// The store's value when one was found, else the default.
  const UnicodeString& value() const { return m_bFound ? m_sStoreValue : m_sDefault; }
  /// Whether the value is yes, y, true, t or 1, in any case.
  bool asBoolean() const;
  void setStoreValue(const UnicodeString& sValue);

  bool isMissing() const { return m_bRequired && !m_bFound; }
  bool isDefaulted() const { return !m_bRequired && !m_bFound; }
  bool isMistyped() const { return m_bTypeCheck && m_nType != m_nStoreType; }

  UnicodeString m_sGroup;
  UnicodeString m_sName;
  UnicodeString m_sDescription;
  int m_nType = STRING;      // as the program declares it
  int m_nStoreType = STRING; // as the back end has it
  UnicodeString m_sDefault;
  UnicodeString m_sStoreValue;
  bool m_bCurrent = true; // declared or read; the store's user may clear it
  bool m_bFound = false;
  bool m_bRequired = false;
  bool m_bTypeCheck = false; // both types must be the same
  bool m_bQuiet = false;     // left out of warnings and reports
};
