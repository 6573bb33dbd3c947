#include "ferry/logging/logger.h"
#include "ferry/queue/client_library.h"
#include "ferry/queue/connect.h"
#include "ferry/queue/session.h"
#include "ferry/text/ucss.h"

namespace {

const char* WhyNoConnection(BXLONG nReason) {
  switch (nReason) {
  case BXRC_Q_DELETED: return "BXRC_Q_DELETED: Queue has been deleted.";
  case BXRC_Q_FULL: return "BXRC_Q_FULL: Queue is full";
  case BXRC_Q_NOT_EMPTY: return "BXRC_Q_NOT_EMPTY: Queue not empty";
  case BXRC_Q_MGR_NAME_ERROR: return "BXRC_Q_MGR_NAME_ERROR: Queue manager Name is invalid";
  case BXRC_Q_MGR_NOT_AVAILABLE: return "BXRC_Q_MGR_NOT_AVAILABLE: Queue manager is not available";
  default: return "See BX Documentation for definition";
  }
}

[[noreturn]] void ThrowNoConnection(BXLONG nCompletion, BXLONG nReason) {
  const char* pWhy = WhyNoConnection(nReason);
  CLogger::TryLog_b(CSeverity::ERR, u"BXCONNX FAILED: %ld %ld: %s", nCompletion, nReason, pWhy);
  UnicodeString sText;
  UCSS::ssprintf(sText, u"BXCONN ended with reason code %ld: %s\n", nReason, pWhy);
  throw VRKBX_Exception::genericError("", sText, nReason, UnicodeString(), 0, VRK_CRITICAL_ERROR);
}

bool CanOpen_b(BXHCONN nConnection, const UnicodeString& sPath) {
  BXOD obDescriptor = BXOD_DEFAULT;
  SetName_v(obDescriptor.objectName, sPath);
  BXHOBJ nObject = BXHO_UNUSABLE;
  BXLONG nCompletion = BXCC_FAILED;
  BXLONG nReason = BXRC_NONE;
  BXOPEN(nConnection, &obDescriptor, BXOO_OUTPUT + BXOO_FAIL_IF_QUIESCING, &nObject, &nCompletion,
         &nReason);
  if (nReason != BXRC_NONE) return false;
  BXCLOSE(nConnection, &nObject, BXCO_NONE, &nCompletion, &nReason);
  return true;
}

} // namespace

bool CCMEBXSer::QExists(const UnicodeString& sPath, const UnicodeString& sManager) {
  [[maybe_unused]] static const bool s_bLoaded = InitBXMUntilExit();
  BXHCONN nConnection = BXHC_UNUSABLE;
  BXLONG nCompletion = BXCC_FAILED;
  BXLONG nReason = BXRC_NONE;
  ConnectX_v(sManager, nConnection, nCompletion, nReason);
  if (nCompletion == BXCC_FAILED) ThrowNoConnection(nCompletion, nReason);
  const bool bExists = CanOpen_b(nConnection, sPath);
  BXDISC(&nConnection, &nCompletion, &nReason);
  return bExists;
}
