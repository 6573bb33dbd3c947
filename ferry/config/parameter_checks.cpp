#include "ferry/config/parameter_store.h"
#include "ferry/errors/exception.h"
#include "ferry/logging/logger.h"

#include <algorithm>

namespace {

VRK_Exception Report_ob() {
  return VRK_Exception::genericError(
      "", u"The following issues were identified during configuration loading:", 0,
      VRK_CRITICAL_ERROR);
}

void AddLine_v(VRK_Exception& obReport, const UnicodeString& sLine) {
  obReport.appendGenericError("", sLine, 0, VRK_NO_SEVERITY);
}

// Adds a line for every parameter that is not quiet and has the fault, under a heading.
template <typename HasFault, typename Line>
void AddFaults_v(VRK_Exception& obReport, const CCMEParameterStore::Parameters& obParameters,
                 const UnicodeString& sHeading, HasFault obHasFault, Line obLine) {
  bool bHeading = false;
  for (const auto& [sKey, obParameter] : obParameters) {
    if (obParameter.m_bQuiet || !obHasFault(obParameter)) continue;
    if (!bHeading) AddLine_v(obReport, sHeading);
    bHeading = true;
    AddLine_v(obReport, obLine(obParameter));
  }
}

UnicodeString TypesLine_s(const CCMEParameter& obParameter) {
  return u"Group: " + obParameter.m_sGroup + u" Name: " + obParameter.m_sName + u" [" +
         CCMEParameter::typeWord(obParameter.m_nType) + u"] vs. [" +
         CCMEParameter::typeWord(obParameter.m_nStoreType) + u"]";
}

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

void CCMEParameterStore::handleWarnings() const {
  const bool bAny =
      std::any_of(m_obParameters.begin(), m_obParameters.end(), [](const auto& obEntry) {
        return !obEntry.second.m_bTypeCheck || obEntry.second.isDefaulted();
      });
  if (!bAny) return;
  for (const auto& [sKey, obParameter] : m_obParameters) {
    if (obParameter.m_bQuiet || !obParameter.isDefaulted()) continue;
    UnicodeString sName = obParameter.m_sName;
    UnicodeString sGroup = obParameter.m_sGroup;
    UnicodeString sDefault = obParameter.m_sDefault;
    CLogger::TryLog_b(
        CSeverity::DBUG, u"Defaulted parameter [%S] in section [%S], using value [%S]",
        sName.getTerminatedBuffer(), sGroup.getTerminatedBuffer(), sDefault.getTerminatedBuffer());
  }
}

// Quiet parameters count for whether there is a report, but are not listed in it: when nothing else
// is wrong, the report is its heading.
void CCMEParameterStore::handleErrors() const {
  const bool bAny =
      std::any_of(m_obParameters.begin(), m_obParameters.end(), [](const auto& obEntry) {
        return obEntry.second.isMistyped() || obEntry.second.isMissing();
      });
  if (!bAny) return;
  VRK_Exception obReport = Report_ob();
  AddFaults_v(
      obReport, m_obParameters, u"  Missing required parameters: ",
      [](const CCMEParameter& p) { return p.isMissing(); },
      [](const CCMEParameter& p) { return p.m_sName; });
  AddFaults_v(
      obReport, m_obParameters, u"  Datatype mismatch (programmed vs. store): ",
      [](const CCMEParameter& p) { return p.isMistyped(); }, TypesLine_s);
  throw VRK_Exception(obReport);
}

void CCMEParameterStore::compare(const CCMEParameterStore& other) const {
  VRK_Exception obReport = Report_ob();
  for (const auto& [sKey, obOurs] : m_obParameters) {
    const auto it = other.m_obParameters.find(sKey);
    if (it == other.m_obParameters.end()) continue;
    const CCMEParameter& obTheirs = it->second;
    if (!obOurs.m_bFound || !obTheirs.m_bFound || !Differ_b(obOurs, obTheirs)) continue;
    if (obReport.Count() == 1) AddLine_v(obReport, u"  Conflicting parameters: ");
    AddLine_v(obReport, ConflictLine_s(obOurs, obTheirs));
  }
  if (obReport.Count() > 1) throw VRK_Exception(obReport);
}
