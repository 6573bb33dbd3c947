#include "ferry/driver/commit_batch.h"

#include "ferry/text/ucss.h"

#include <algorithm>

namespace {

constexpr size_t MAX_RECORDS = 1000;
constexpr size_t MAX_BYTES = 1048576;

} // namespace

CCommitBatch::CCommitBatch(const std::vector<CCMEBX*>& aQueues, const char* pDone)
    : m_pDone(pDone) {
  for (CCMEBX* pobQueue : aQueues) m_aWork.push_back({pobQueue});
}

void CCommitBatch::Add_v(size_t nQueue, size_t nBytes, uint64_t nBegin) {
  Work& obWork = m_aWork[nQueue];
  if (obWork.nRecords++ == 0) obWork.nBegin = nBegin;
  obWork.nBytes += nBytes;
  const bool bEnough = obWork.nRecords >= MAX_RECORDS || obWork.nBytes >= MAX_BYTES;
  if (bEnough && !Commit_b(obWork)) Fail_v();
}

void CCommitBatch::Commit_v() {
  for (Work& obWork : m_aWork)
    if (!Commit_b(obWork)) Fail_v();
}

// Nothing of a unit of work that failed may stay pending: the disconnect would commit it.
bool CCommitBatch::Commit_b(Work& obWork) {
  if (obWork.nRecords == 0) return true;
  if (obWork.nState != OPEN) return false;
  obWork.nState = FAILED; // also when it throws
  if (obWork.pobQueue->CommitTran() != 0) {
    if (obWork.pobQueue->IsCommitUnknown()) obWork.nState = UNKNOWN;
    obWork.pobQueue->RollbackTran();
    return false;
  }
  obWork.nState = OPEN;
  obWork.nCounting += obWork.nRecords;
  obWork.nRecords = 0;
  obWork.nBytes = 0;
  return true;
}

void CCommitBatch::Fail_v() {
  for (Work& obWork : m_aWork) Commit_b(obWork);
  throw VRK_Exception::genericError("", Account_s(), 0, VRK_CRITICAL_ERROR);
}

void CCommitBatch::Explain_v(VRK_Exception& obFailure) {
  if (Failed_b()) return; // it tells already
  for (Work& obWork : m_aWork) Commit_b(obWork);
  obFailure.appendGenericError("", Account_s(), 0, obFailure.Severity());
}

bool CCommitBatch::Failed_b() const {
  return std::ranges::any_of(m_aWork, [](const Work& obWork) { return obWork.nState != OPEN; });
}

uint64_t CCommitBatch::FirstOpen_n(uint64_t nEnd) const {
  for (const Work& obWork : m_aWork)
    if (obWork.nRecords > 0) nEnd = std::min(nEnd, obWork.nBegin);
  return nEnd;
}

// What failed comes first.
UnicodeString CCommitBatch::Account_s() const {
  UnicodeString sText;
  for (const bool bOpen : {false, true})
    for (const Work& obWork : m_aWork)
      if ((obWork.nState == OPEN) == bOpen)
        sText.append(UnicodeString(sText.isEmpty() ? u"" : u"; ")).append(Account_s(obWork));
  return sText;
}

UnicodeString CCommitBatch::Account_s(const Work& obWork) const {
  const UnicodeString sQueue = obWork.pobQueue->GetPath();
  const UChar* pQueue = UCSS::getConstUnicodeStringContent(sQueue);
  UnicodeString sText;
  if (obWork.nState == FAILED)
    UCSS::ssprintf(sText,
                   u"Commit failed on queue %S: the first %lu records count, what was %s since "
                   u"does not",
                   pQueue, obWork.nCounting, m_pDone);
  else if (obWork.nState == UNKNOWN)
    UCSS::ssprintf(sText,
                   u"Commit interrupted on queue %S: the first %lu records count, whether the next "
                   u"%lu were %s is not known: look at the queue before repeating them",
                   pQueue, obWork.nCounting, obWork.nRecords, m_pDone);
  else
    UCSS::ssprintf(sText, u"the first %lu records count on queue %S", obWork.nCounting, pQueue);
  return sText;
}
