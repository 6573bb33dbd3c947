#include "ferry/config/parameter_store.h"

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
