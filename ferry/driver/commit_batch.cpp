#include "ferry/driver/commit_batch.h"

#include "ferry/text/ucss.h"

#include <algorithm>

namespace {

using namespace std::chrono_literals;

constexpr size_t ENOUGH_RECORDS = 1000;
constexpr size_t ENOUGH_BYTES = 1048576;
constexpr size_t MAX_BYTES = 16 * ENOUGH_BYTES; // of all units of work together
constexpr auto MAX_AGE = 100ms;
constexpr int PACE = 4; // as many times as long as it took lies between two commits

constexpr size_t LINES_PER_LOOK = 8; // the clock takes as long as a thirtieth of a record
constexpr size_t BYTES_PER_LOOK = 65536;

} // namespace

CCommitBatch::CCommitBatch(const std::vector<CCMEBX*>& aQueues, const char* pDone, bool bGivenBack)
    : m_pDone(pDone), m_bGivenBack(bGivenBack) {
  for (CCMEBX* pobQueue : aQueues) m_aWork.emplace_back().pobQueue = pobQueue;
}

void CCommitBatch::Add_v(size_t nQueue, size_t nBytes, uint64_t nBegin) {
  Work& obWork = m_aWork[nQueue];
  if (obWork.nRecords++ == 0) obWork.nBegin = nBegin;
  obWork.nBytes += nBytes;
  Look_v(nBytes);
}

void CCommitBatch::Look_v(size_t nBytes) {
  m_nBytes += nBytes;
  if (++m_nLines < LINES_PER_LOOK && m_nBytes < BYTES_PER_LOOK) return;
  m_nLines = m_nBytes = 0;
  const auto obDue = [this, obNow = m_pNow()](Work& obWork) { return Due_b(obWork, obNow); };
  while (Work* pobWork = Oldest_p(obDue))
    if (!Commit_b(*pobWork)) Fail_v();
}

bool CCommitBatch::Due_b(Work& obWork, Clock::time_point obNow) const {
  if (!obWork.obSeen) obWork.obSeen = obNow;
  if (obNow - *obWork.obSeen >= MAX_AGE) return true;
  if (obWork.nRecords < ENOUGH_RECORDS && obWork.nBytes < ENOUGH_BYTES) return false;
  return obNow - m_obCommitted >= PACE * m_obTook ||
         obWork.nBytes >= std::max(ENOUGH_BYTES, MAX_BYTES / m_aWork.size());
}

void CCommitBatch::Commit_v() {
  while (Work* pobWork = Oldest_p([](const Work&) { return true; }))
    if (!Commit_b(*pobWork)) Fail_v();
}

// What began first goes first: what is behind a failure can then still be undone.
template <typename Wanted>
CCommitBatch::Work* CCommitBatch::Oldest_p(Wanted obWanted) {
  Work* pobOldest = nullptr;
  for (Work& obWork : m_aWork)
    if (obWork.nState == OPEN && obWork.nRecords > 0 && obWanted(obWork) &&
        (!pobOldest || obWork.nBegin < pobOldest->nBegin))
      pobOldest = &obWork;
  return pobOldest;
}

bool CCommitBatch::Commit_b(Work& obWork) {
  if (obWork.nRecords == 0) return true;
  if (obWork.nState != OPEN) return false;
  obWork.nState = FAILED; // also when it throws
  // A record by itself, as the reading of a queue commits it, sets no pace.
  const bool bTimed = obWork.nRecords > 1;
  if ((bTimed ? TimedCommit_n(*obWork.pobQueue) : obWork.pobQueue->CommitTran()) != 0) {
    Undo_v(obWork, obWork.pobQueue->IsCommitUnknown() ? UNKNOWN : FAILED);
    return false;
  }
  obWork.nState = OPEN;
  obWork.nCounting += obWork.nRecords;
  obWork.nRecords = 0;
  obWork.nBytes = 0;
  obWork.obSeen.reset();
  return true;
}

int CCommitBatch::TimedCommit_n(CCMEBX& obQueue) {
  const auto obBegin = m_pNow();
  const int nResult = obQueue.CommitTran();
  m_obCommitted = m_pNow();
  m_obTook = m_obCommitted - obBegin;
  return nResult;
}

// Nothing may stay pending: the disconnect would commit it.
void CCommitBatch::Undo_v(Work& obWork, STATE nState) {
  obWork.nState = nState;
  obWork.pobQueue->RollbackTran();
}

void CCommitBatch::Fail_v() {
  const auto obFailed = std::ranges::find_if(m_aWork, Failed_b);
  for (Work& obWork : m_aWork)
    if (m_bGivenBack && obWork.nState == OPEN && obWork.nRecords > 0 &&
        obWork.nBegin > obFailed->nBegin)
      Undo_v(obWork, UNDONE);
    else
      Commit_b(obWork);
  throw VRK_Exception::genericError("", Account_s(), 0, VRK_CRITICAL_ERROR);
}

void CCommitBatch::Explain_v(VRK_Exception& obFailure) {
  if (std::ranges::any_of(m_aWork, Failed_b)) return; // it tells already
  for (Work& obWork : m_aWork) Commit_b(obWork);
  obFailure.appendGenericError("", Account_s(), 0, obFailure.Severity());
}

uint64_t CCommitBatch::FirstOpen_n(uint64_t nEnd) const {
  for (const Work& obWork : m_aWork)
    if (obWork.nRecords > 0) nEnd = std::min(nEnd, obWork.nBegin);
  return nEnd;
}

// What failed comes first.
UnicodeString CCommitBatch::Account_s() const {
  UnicodeString sText;
  for (const bool bFailed : {true, false})
    for (const Work& obWork : m_aWork)
      if (Failed_b(obWork) == bFailed)
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
