#include "ferry/config/parameter_store.h"

#include "ferry/errors/exception.h"

#include <optional>

namespace {

bool IsBoolean_b(const CCMEParameter& a, const CCMEParameter& b) {
  return a.m_nType == CCMEParameter::BOOLEAN || b.m_nType == CCMEParameter::BOOLEAN;
}

bool IsInteger_b(const CCMEParameter& a, const CCMEParameter& b) {
  return a.m_nStoreType == CCMEParameter::INTEGER || b.m_nStoreType == CCMEParameter::INTEGER;
}

bool Differ_b(const CCMEParameter& a, const CCMEParameter& b) {
  if (IsBoolean_b(a, b)) return a.asBoolean() != b.asBoolean();
  if (IsInteger_b(a, b)) return UCSS::atoi(a.value()) != UCSS::atoi(b.value());
  return a.value() != b.value();
}

UnicodeString ConflictLine_s(const CCMEParameter& a, const CCMEParameter& b) {
  if (a.m_bQuiet || b.m_bQuiet) return u"[...]";
  const UnicodeString sDescription = a.m_sDescription.isEmpty() ? u"-" : a.m_sDescription;
  return u"    " + a.m_sGroup + u":" + a.m_sName + u" (" + sDescription + u") [" + a.value() +
         u"] vs. [" + b.value() + u"]";
}

} // namespace

void CCMEParameterStore::compare(const CCMEParameterStore& other) const {
  std::optional<VRK_Exception> obReport;
  for (const auto& [sKey, obOurs] : m_obParameters) {
    const auto it = other.m_obParameters.find(sKey);
    if (it == other.m_obParameters.end()) continue;
    const CCMEParameter& obTheirs = it->second;
    if (!obOurs.m_bFound || !obTheirs.m_bFound || !Differ_b(obOurs, obTheirs)) continue;
    if (!obReport) {
      obReport = VRK_Exception::genericError(
          "", u"The following issues were identified during configuration loading:", 0,
          VRK_CRITICAL_ERROR);
      obReport->appendGenericError("", u"  Conflicting parameters: ", 0, VRK_NO_SEVERITY);
    }
    obReport->appendGenericError("", ConflictLine_s(obOurs, obTheirs), 0, VRK_NO_SEVERITY);
  }
  if (obReport) throw VRK_Exception(*obReport);
}

void CCMEParameterStore::chooseActiveParameters(const CCMEParameterStore& first,
                                                const CCMEParameterStore& second) {
  first.compare(second);
  // Built apart, since either of the two may be this store.
  Parameters obUnion = first.m_obParameters;
  for (auto& [sKey, obParameter] : obUnion) obParameter.setStoreValue(obParameter.value());
  for (const auto& [sKey, obTheirs] : second.m_obParameters) {
    if (!obTheirs.m_bFound) continue;
    const auto itFirst = first.m_obParameters.find(sKey);
    if (itFirst == first.m_obParameters.end()) {
      if (!m_bDeclaredOnly) obUnion.insert_or_assign(sKey, obTheirs);
    } else if (!itFirst->second.m_bFound) {
      obUnion.at(sKey).setStoreValue(obTheirs.m_sStoreValue);
    }
  }
  const UnicodeString sActive =
      first.m_sActiveGroup.isEmpty() ? second.m_sActiveGroup : first.m_sActiveGroup;
  m_obParameters = std::move(obUnion);
  m_sActiveGroup = sActive;
}
