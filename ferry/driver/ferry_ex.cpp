#include "ferry/driver/ferry_ex.h"

#include "ferry/driver/commit_batch.h"
#include "ferry/driver/interruption.h"
#include "ferry/driver/line_reader.h"
#include "ferry/driver/record.h"
#include "ferry/driver/standard_output.h"
#include "ferry/driver/standard_streams.h"
#include "ferry/text/ss.h"
#include "ferry/text/ucss.h"

#include <unistd.h>

namespace {

constexpr long WAIT = 100; // milliseconds that an empty queue keeps a loop alive

void Report_v(long nCount, std::string_view sWhat) {
  WriteNotice_v("(" + std::to_string(nCount) + ") Records " + std::string(sWhat) + ".\n");
}

// Takes one record for good before it is shown.
int Take_n(CCMEBX& obQueue, UnicodeString& sRecord) {
  obQueue.BeginTran();
  const int nStatus = obQueue.ReceiveMessage(sRecord, WAIT);
  if (nStatus != 0)
    obQueue.RollbackTran();
  else
    CommitOrThrow_v(obQueue);
  return nStatus;
}

// Standard output as a sequence of records. Records that were taken off their queue are written one
// by one, so that a failure loses no more than one of them; peeked ones go out by the bufferful.
class CRecordOutput {
public:
  explicit CRecordOutput(bool bGather) : m_bGather(bGather) {}

  void PrepareNext_v() const {
    if (!m_bGather) m_obOutput.CheckReader_v();
  }

  // Carriage returns and line feeds are removed from the narrow text, where they are searched for
  // many bytes at a time; in the default code page nothing else holds these two bytes.
  void Write_v(const UnicodeString& sRecord) {
    std::string sText = UCSS::ucsToDCP(sRecord);
    SS::Remove(sText, '\r');
    SS::Remove(sText, '\n');
    sText += '\n';
    m_obOutput.Add_v(sText);
    if (!m_bGather) m_obOutput.Flush_v();
  }

  void Flush_v() { m_obOutput.Flush_v(); }

private:
  const bool m_bGather;
  CStandardOutput m_obOutput;
};

} // namespace

UnicodeString CFerryEx::m_sGrep;

void CFerryEx::ProcessFile2Q(CCMEBX* q, long count, long pause, long priority, long expire) {
  const CInterruption obInterruption;
  CCommitBatch obBatch({q});
  CLineReader obInput(STDIN_FILENO, [&obBatch] { obBatch.Commit_v(); });
  std::string_view sLine;
  UnicodeString sRecord;
  long nSent = 0;
  while (obInput.Read_b(sLine)) {
    UCSS::dcpToUCS(sRecord, sLine);
    if (Passes_b(sRecord, m_sGrep)) {
      SendRecord_v(*q, sRecord, priority, expire);
      obBatch.Add_v(0, sLine.size());
      if (pause > 0) obBatch.Commit_v();
      rwSleep(pause);
      ++nSent;
      --count;
    }
    obInput.Done_v();
    if (count == 0) break; // a count that was 0 from the start is below it by now: no limit
  }
  obBatch.Commit_v();
  Report_v(nSent, "Sent");
}

void CFerryEx::ProcessQ2File(CCMEBX* q, long count, bool peek, long pause) {
  if (count == 0) return;
  const CInterruption obInterruption;
  const bool bTransactional = !peek && m_sGrep.isEmpty();
  CRecordOutput obOutput(peek);
  UnicodeString sRecord;
  long nReceived = 0;
  int nStatus = 0;
  while (nStatus == 0 && count != 0 && CInterruption::Signal_n() == 0) {
    obOutput.PrepareNext_v();
    nStatus = bTransactional ? Take_n(*q, sRecord) : q->PeekMsg(sRecord, WAIT);
    if (nStatus != 0 || !Passes_b(sRecord, m_sGrep)) continue;
    if (!bTransactional && !peek) q->DeleteMessage();
    ++nReceived;
    --count;
    obOutput.Write_v(sRecord);
    if (pause > 0) obOutput.Flush_v();
    rwSleep(pause);
  }
  obOutput.Flush_v();
  Report_v(nReceived, "Received");
}

void CFerryEx::CleanQueue(CCMEBX* q, long count) {
  const CInterruption obInterruption;
  CCommitBatch obBatch({q});
  UnicodeString sRecord;
  long nRemoved = 0;
  while (CInterruption::Signal_n() == 0 && q->ReceiveMessage(sRecord, WAIT) == 0) {
    ++nRemoved;
    obBatch.Add_v(0, static_cast<size_t>(sRecord.length()));
    if (count != -1 && --count <= 0) break;
  }
  obBatch.Commit_v();
  Report_v(nRemoved, "Purged");
}
