#include "ferry/queue/session.h"

// A unit of work starts with the first get or put after what was pending is discarded; the
// manager's own begin call is for other resource managers.
int CCMEBXSer::BeginTran() {
  RollbackTran();
  return 0;
}

// A warning is a success for the commit and a failure for the backout.
int CCMEBXSer::CommitTran() {
  BXLONG nCompletion = BXCC_FAILED;
  BXLONG nReason = BXRC_NONE;
  BXCMIT(m_nConnection, &nCompletion, &nReason);
  m_bCommitUnknown = nCompletion == BXCC_FAILED && nReason == BXRC_OUTCOME_UNKNOWN;
  if (nCompletion != BXCC_FAILED) return 0;
  PrintError(nReason);
  return -1;
}

int CCMEBXSer::RollbackTran() {
  BXLONG nCompletion = BXCC_FAILED;
  BXLONG nReason = BXRC_NONE;
  BXBACK(m_nConnection, &nCompletion, &nReason);
  return nCompletion == BXCC_OK ? 0 : -1;
}
