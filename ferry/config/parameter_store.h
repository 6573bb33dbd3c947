#pragma once

#include "ferry/config/parameter.h"
#include "ferry/text/ucss.h"

#include <map>
#include <unicode/uchar.h>
#include <vector>

/// Parameters by group and name, filled from and written to a back end.
///
/// Pointers into the store stay valid until it is initialised, assigned or destroyed. A store may
/// be read by several threads while none changes it.
class CCMEParameterStore {
public:
  /// Orders keys without regard to case.
  struct ltstring {
    bool operator()(const UnicodeString& a, const UnicodeString& b) const {
      return a.caseCompare(b, U_FOLD_CASE_DEFAULT) < 0;
    }
  };
  using Parameters = std::map<UnicodeString, CCMEParameter, ltstring>;

  CCMEParameterStore() = default;
  virtual ~CCMEParameterStore() = default;
  CCMEParameterStore(const CCMEParameterStore&) = default;
  CCMEParameterStore& operator=(const CCMEParameterStore&) = default;

  /// Fills the store from the back end, or writes it there. Throw VRK_Exception when the back end
  /// refuses.
  virtual void read() = 0;
  virtual void write() = 0;

  /// Empties the store and declares the rows of a table. The active group, which "*" stands for, is
  /// the section when the back end has it, else the application's name.
  void initialize(const UnicodeString& sSection, const char* (*table)[7], unsigned short nRowCount);

  /// The parameter's value as a number when one was found, else the caller's default (not the
  /// declared one).
  unsigned long asULong(const UnicodeString& sGroup, const UnicodeString& sName,
                        const UnicodeString& sDefault) const;
  /// The parameter, null when there is none. A group "*" means the active group.
  const CCMEParameter* find(const UnicodeString& sGroup, const UnicodeString& sName) const;
  void getAllParamsInGroup(const UnicodeString& sGroup,
                           std::vector<const CCMEParameter*>& out) const;
  /// All parameters by key.
  Parameters& parameters() { return m_obParameters; }
  const Parameters& parameters() const { return m_obParameters; }
  const UnicodeString& activeGroup() const { return m_sActiveGroup; }

  /// Logs, at the debug level, each parameter that fell back to its default. Never throws, also
  /// when it cannot be logged.
  void handleWarnings() const;
  /// Throws VRK_Exception when required parameters are missing or types differ; it lists them all.
  void handleErrors() const;
  /// Throws VRK_Exception when parameters found in both stores have different values; it lists them
  /// all, quiet ones without their values.
  void compare(const CCMEParameterStore& other) const;
  /// Makes this store the union of two: what the first says, then what only the second found.
  /// Throws like compare() when they disagree; this store is then unchanged. The active group is
  /// the first store's, or the second's when that is empty.
  void chooseActiveParameters(const CCMEParameterStore& first, const CCMEParameterStore& second);

protected:
  UnicodeString key(const UnicodeString& sGroup, const UnicodeString& sName) const {
    return CCMEParameter::getKey(sGroup, sName, m_bCaseSensitive);
  }
  /// Takes over a value that the back end found.
  void setFound(const UnicodeString& sGroup, const UnicodeString& sName,
                const UnicodeString& sValue);

  bool m_bCaseSensitive = false;
  Parameters m_obParameters;
  bool m_bDeclaredOnly = false; // the second store may not add keys that the first lacks
  UnicodeString m_sActiveGroup;

private:
  bool hasSection(const UnicodeString& sSection) const;
  void declare(const char* const* row);
};
