#include "ferry/config/parameter_store.h"

#include "ferry/config/settings.h"

#include <algorithm>
#include <utility>

namespace {

constexpr UChar ACTIVE_GROUP[] = u"*";

} // namespace

void CCMEParameterStore::initialize(const UnicodeString& sSection, const char* (*table)[7],
                                    unsigned short nRowCount) {
  // What was declared before says nothing about the back end. It may hold sSection itself.
  const Parameters obBefore = std::exchange(m_obParameters, {});
  if (!sSection.isEmpty()) read();
  if (hasSection(sSection))
    m_sActiveGroup = sSection;
  else
    GetAppName_v(m_sActiveGroup);
  m_obParameters.clear();
  for (unsigned short n = 0; n < nRowCount; ++n) declare(table[n]);
}

bool CCMEParameterStore::hasSection(const UnicodeString& sSection) const {
  if (sSection.isEmpty()) return false;
  return std::any_of(m_obParameters.begin(), m_obParameters.end(),
                     [&](const auto& obEntry) { return obEntry.second.m_sGroup == sSection; });
}

void CCMEParameterStore::declare(const char* const* row) {
  CCMEParameter obParameter(row);
  if (obParameter.m_sGroup == ACTIVE_GROUP) obParameter.m_sGroup = m_sActiveGroup;
  m_obParameters.insert_or_assign(key(obParameter.m_sGroup, obParameter.m_sName), obParameter);
}

void CCMEParameterStore::setFound(const UnicodeString& sGroup, const UnicodeString& sName,
                                  const UnicodeString& sValue) {
  const auto it = m_obParameters.try_emplace(key(sGroup, sName), sGroup, sName).first;
  it->second.setStoreValue(sValue);
}

const CCMEParameter* CCMEParameterStore::find(const UnicodeString& sGroup,
                                              const UnicodeString& sName) const {
  const auto it = m_obParameters.find(key(sGroup == ACTIVE_GROUP ? m_sActiveGroup : sGroup, sName));
  return it == m_obParameters.end() ? nullptr : &it->second;
}

unsigned long CCMEParameterStore::asULong(const UnicodeString& sGroup, const UnicodeString& sName,
                                          const UnicodeString& sDefault) const {
  const CCMEParameter* pobParameter = find(sGroup, sName);
  return UCSS::atoul(pobParameter && pobParameter->m_bFound ? pobParameter->m_sStoreValue
                                                            : sDefault);
}

void CCMEParameterStore::getAllParamsInGroup(const UnicodeString& sGroup,
                                             std::vector<const CCMEParameter*>& out) const {
  out.clear();
  for (const auto& [sKey, obParameter] : m_obParameters)
    if (obParameter.m_sGroup.caseCompare(sGroup, U_FOLD_CASE_DEFAULT) == 0)
      out.push_back(&obParameter);
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
