#include "ferry/driver/distribution_config.h"

#include "ferry/config/settings.h"
#include "ferry/errors/exception.h"
#include "ferry/text/ss.h"
#include "ferry/text/uc_string.h"
#include "ferry/text/ucss.h"

namespace {

std::string ConfigFile_s() {
  UnicodeString sFile;
  GetConfigFile_b(sFile);
  return UCSS::ucsToDCP(sFile);
}

void Load_v(CCMEParameterINIStore& obStore) {
  obStore.initialize(UnicodeString(), nullptr, 0);
  obStore.read();
}

UnicodeString QueueKey_s(int n) {
  std::string sKey;
  SS::ssprintf(sKey, "QOut%d", n);
  return UnicodeString(sKey.c_str());
}

} // namespace

CDistributionConfig::CDistributionConfig(const std::string& sSection)
    : m_sSection(sSection.c_str()), m_obStore(ConfigFile_s()) {
  Load_v(m_obStore);
  m_obStore.handleWarnings();
  m_obStore.handleErrors();
  if (m_obStore.find(m_sSection, QueueKey_s(0))) return;
  UnicodeString sText;
  UCSS::ssprintf(sText, u"No output queue QOut0 in section [%S] of %s",
                 UCSS::getConstUnicodeStringContent(m_sSection), ConfigFile_s().c_str());
  throw VRK_Exception::genericError("", sText, 0, VRK_CRITICAL_ERROR);
}

std::vector<UnicodeString> CDistributionConfig::Queues_a() const {
  std::vector<UnicodeString> aQueues;
  for (int n = 0; const CCMEParameter* pobQueue = m_obStore.find(m_sSection, QueueKey_s(n)); ++n) {
    aQueues.push_back(UCString(pobQueue->value()).trim());
  }
  return aQueues;
}

// The store is emptied first: a limit that the operator took out of the file is no limit any more.
CDistributionConfig::Limits CDistributionConfig::Reread_ob() {
  Load_v(m_obStore);
  return Limits_ob(u"0");
}

CDistributionConfig::Limits CDistributionConfig::Limits_ob(const char16_t* pDefaultPause) const {
  return {Limit_n(u"MessageCountMax"), Limit_n(u"FullCountMax"),
          Integer_n(u"FullPause", pDefaultPause)};
}

uint32_t CDistributionConfig::Limit_n(const char16_t* pName) const {
  const UnicodeString sNone = UCSS::toString(static_cast<unsigned long long>(Limits::NONE));
  return static_cast<uint32_t>(m_obStore.asULong(m_sSection, UnicodeString(pName), sNone));
}

long CDistributionConfig::Integer_n(const char16_t* pName, const char16_t* pDefault) const {
  const CCMEParameter* pobValue = m_obStore.find(m_sSection, UnicodeString(pName));
  return UCSS::atoi(pobValue ? pobValue->value() : UnicodeString(pDefault));
}
