#include "ferry/driver/commit_batch.h"

#include "ferry/errors/exception.h"

namespace {

constexpr size_t MAX_RECORDS = 1000;
constexpr size_t MAX_BYTES = 1048576;

} // namespace

void CommitOrThrow_v(CCMEBX& obQueue) {
  if (obQueue.CommitTran() == 0) return;
  const UnicodeString sText = UnicodeString(u"Commit failed on queue ") + obQueue.GetPath() +
                              u": what was done since the last commit does not count";
  throw VRK_Exception::genericError("", sText, 0, VRK_CRITICAL_ERROR);
}

CCommitBatch::CCommitBatch(const std::vector<CCMEBX*>& aQueues) {
  for (CCMEBX* pobQueue : aQueues) m_aWork.push_back({pobQueue});
}

void CCommitBatch::Add_v(size_t nQueue, size_t nBytes) {
  Work& obWork = m_aWork[nQueue];
  obWork.nBytes += nBytes;
  if (++obWork.nRecords >= MAX_RECORDS || obWork.nBytes >= MAX_BYTES) Commit_v(obWork);
}

void CCommitBatch::Commit_v() {
  for (Work& obWork : m_aWork) Commit_v(obWork);
}

void CCommitBatch::Commit_v(Work& obWork) {
  if (obWork.nRecords == 0) return;
  obWork.nRecords = 0;
  obWork.nBytes = 0;
  CommitOrThrow_v(*obWork.pobQueue);
}
