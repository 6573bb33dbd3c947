#include "ferry/queue/admin_command.h"

#include "ferry/text/ucss.h"

namespace {

void DeleteBag(BXHBAG& nBag) {
  BXLONG nCompletion = BXCC_OK;
  BXLONG nReason = BXRC_NONE;
  if (nBag != BXHB_UNUSABLE) bxDeleteBag(&nBag, &nCompletion, &nReason);
}

} // namespace

CAdminCommand::CAdminCommand() {
  bxCreateBag(BXCBO_ADMIN_BAG, &m_nCommand, &m_nCompletion, &m_nReason);
  if (Did_b()) bxCreateBag(BXCBO_ADMIN_BAG, &m_nAnswers, &m_nCompletion, &m_nReason);
  Did_b();
}

CAdminCommand::~CAdminCommand() {
  DeleteBag(m_nCommand);
  DeleteBag(m_nAnswers);
}

CAdminCommand& CAdminCommand::Add_rob(BXLONG nSelector, const UnicodeString& sText) {
  if (!m_bBuilt) return *this;
  bxAddString(m_nCommand, nSelector, BX_NULL_TERMINATED, UCSS::ucsToDCP(sText).c_str(),
              &m_nCompletion, &m_nReason);
  Did_b();
  return *this;
}

CAdminCommand& CAdminCommand::Add_rob(BXLONG nSelector, BXLONG nValue) {
  if (!m_bBuilt) return *this;
  bxAddInteger(m_nCommand, nSelector, nValue, &m_nCompletion, &m_nReason);
  Did_b();
  return *this;
}

CAdminCommand& CAdminCommand::Ask_rob(std::initializer_list<BXLONG> aSelectors) {
  for (const BXLONG nSelector : aSelectors) {
    if (!m_bBuilt) break;
    bxAddInquiry(m_nCommand, nSelector, &m_nCompletion, &m_nReason);
    Did_b();
  }
  return *this;
}

bool CAdminCommand::Execute_b(BXHCONN nConnection, BXLONG nCommand) {
  bxExecute(nConnection, nCommand, BXHB_NONE, m_nCommand, m_nAnswers, BXHO_NONE, BXHO_NONE,
            &m_nCompletion, &m_nReason);
  return m_nCompletion == BXCC_OK;
}

BXLONG CAdminCommand::CountAnswers_n() const {
  BXLONG nCount = 0;
  BXLONG nCompletion = BXCC_FAILED;
  BXLONG nReason = BXRC_NONE;
  bxCountItems(m_nAnswers, BXHA_RESPONSE, &nCount, &nCompletion, &nReason);
  return nCompletion == BXCC_FAILED ? 0 : nCount;
}

BXHBAG CAdminCommand::Answer_n(BXLONG nIndex) const {
  BXHBAG nAnswer = BXHB_UNUSABLE;
  BXLONG nCompletion = BXCC_FAILED;
  BXLONG nReason = BXRC_NONE;
  bxInquireBag(m_nAnswers, BXHA_RESPONSE, nIndex, &nAnswer, &nCompletion, &nReason);
  return nAnswer;
}

BXLONG CAdminCommand::Integer_n(BXHBAG nAnswer, BXLONG nSelector) {
  BXLONG nValue = 0;
  BXLONG nCompletion = BXCC_FAILED;
  BXLONG nReason = BXRC_NONE;
  bxInquireInteger(nAnswer, nSelector, 0, &nValue, &nCompletion, &nReason);
  return nCompletion == BXCC_FAILED ? 0 : nValue;
}

std::string CAdminCommand::Text_s(BXHBAG nAnswer, BXLONG nSelector, BXLONG nLength,
                                  BXLONG* pLength) {
  std::string sText(static_cast<size_t>(nLength), '\0');
  BXLONG nTextLength = 0;
  BXLONG nCompletion = BXCC_FAILED;
  BXLONG nReason = BXRC_NONE;
  bxInquireString(nAnswer, nSelector, 0, nLength, sText.data(), &nTextLength, nullptr, &nCompletion,
                  &nReason);
  if (nCompletion == BXCC_FAILED) nTextLength = 0;
  if (pLength) *pLength = nTextLength;
  if (nCompletion == BXCC_FAILED) sText.clear();
  return sText;
}
