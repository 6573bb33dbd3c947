#include "ferry/logging/logger.h"
#include "ferry/queue/session.h"
#include "ferry/text/ucss.h"

// Neither a log that cannot be written nor missing memory must hide the failure that it is about,
// or skip what is still to be done after it.
void CCMEBXSer::PrintError(long nReason) const noexcept {
  try {
    const UnicodeString sText = GetErrorText(nReason);
    CMsg obMsg(UnicodeString(u"bx"), CSeverity::ERR);
    obMsg.AddLine_rob(u"Queue: %S", UCSS::getConstUnicodeStringContent(m_sPath))
        .AddLine_rob(u"BX error, reason code: %ld", nReason)
        .AddLine_rob(u"Error message: %S", UCSS::getConstUnicodeStringContent(sText));
    CLogger::TryLog_b(obMsg);
  } catch (const std::exception&) {
  }
}

unsigned long CCMEBXSer::HandleError(long nReason, const char* pContext) const {
  PrintError(nReason);
  VRK_Severity nSeverity = VRK_NO_SEVERITY;
  std::string sCategory;
  const unsigned long nCode = GetBXSExceptionCode(nReason, nSeverity, sCategory);
  m_obError.SetSeverity(nSeverity);
  m_obError.SetBXError(nReason, GetErrorText(nReason));
  m_obError.appendGenericError("", UnicodeString(sCategory.c_str()), static_cast<int>(nCode),
                               nSeverity);
  UnicodeString sUse;
  UCSS::ssprintf(sUse, u"Error while using queue: %s", UCSS::ucToString(m_sPath).c_str());
  m_obError.appendGenericError("", sUse, 0, VRK_NO_SEVERITY);
  if (pContext) m_obError.appendGenericError("", UnicodeString(pContext), 0, VRK_NO_SEVERITY);
  if (nSeverity >= VRK_MAJOR_ERROR) throw VRKBX_Exception(m_obError);
  return nCode;
}
