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

void CCommitBatch::Add_v(size_t nQueue, size_t nBytes) {
  m_aPending[nQueue] = true;
  m_nBytes += nBytes;
  if (++m_nRecords >= MAX_RECORDS || m_nBytes >= MAX_BYTES) Commit_v();
}

void CCommitBatch::Commit_v() {
  if (m_nRecords == 0) return;
  m_nRecords = 0;
  m_nBytes = 0;
  for (size_t n = 0; n < m_aQueues.size(); ++n) {
    if (!m_aPending[n]) continue;
    m_aPending[n] = false;
    CommitOrThrow_v(*m_aQueues[n]);
  }
}
