#include "ferry/driver/record_input.h"

#include "ferry/errors/exception.h"

#include <unistd.h>
#include <utility>

namespace {

const UnicodeString LABEL(u"Ferry Message");

} // namespace

CRecordInput::CRecordInput(const std::vector<CCMEBX*>& aQueues)
    : m_obBatch(aQueues, "sent", ::lseek(STDIN_FILENO, 0, SEEK_CUR) >= 0),
      m_obReader(STDIN_FILENO, [this] { m_obBatch.Commit_v(); }) {}

CRecordInput::~CRecordInput() {
  try {
    m_obBatch.Commit_v();
  } catch (...) {
    // Told already, or told by the failure that led here; what is not committed is given back.
  }
  m_obReader.LeaveAt_v(m_obBatch.FirstOpen_n(m_nDone));
}

void CRecordInput::Sent_v(size_t nQueue) {
  const uint64_t nBegin = m_nDone;
  m_obBatch.Add_v(nQueue, Done_n(), nBegin);
}

void CRecordInput::Dropped_v() { m_obBatch.Pass_v(Done_n()); }

// The length of the line just read, which is dealt with.
size_t CRecordInput::Done_n() {
  const uint64_t nBegin = std::exchange(m_nDone, m_obReader.End_n());
  return m_nDone - nBegin;
}

bool Passes_b(const UnicodeString& sRecord, const UnicodeString& sGrep) {
  return sGrep.isEmpty() || (!sGrep.isBogus() && sRecord.indexOf(sGrep) >= 0);
}

void SendRecord_v(CCMEBX& obQueue, const UnicodeString& sRecord, long nPriority, long nExpire) {
  if (obQueue.SendMsg(sRecord, static_cast<int>(nPriority), nExpire, LABEL) == 0) return;
  const UnicodeString sText = UnicodeString(u"Record not sent to queue ") + obQueue.GetPath();
  throw VRK_Exception::genericError("", sText, 0, VRK_CRITICAL_ERROR);
}
