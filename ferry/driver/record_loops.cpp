#include "ferry/driver/record_loops.h"

#include "ferry/driver/interruption.h"
#include "ferry/driver/progress_line.h"
#include "ferry/driver/record_input.h"
#include "ferry/driver/standard_output.h"
#include "ferry/driver/standard_streams.h"
#include "ferry/text/ss.h"
#include "ferry/text/ucss.h"

#include <algorithm>
#include <chrono>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

constexpr long WAIT = 100; // milliseconds that an empty queue keeps a loop alive
constexpr std::chrono::milliseconds WAITED{1}; // a receive that took so long was not served at once

void Report_v(long nCount, std::string_view sWhat) {
  WriteNotice_v("(" + std::to_string(nCount) + ") Records " + std::string(sWhat) + ".\n");
}

// Standard output as a sequence of records. Records that were taken off their queue are written one
// by one, so that a failure loses no more than one of them; peeked ones go out by the bufferful.
class CRecordOutput {
public:
  explicit CRecordOutput(bool bGather) : m_bGather(bGather) {}

  void PrepareNext_v() const {
    if (!m_bGather) m_obOutput.AwaitReader_v();
  }

  // Carriage returns and line feeds are removed from the narrow text, where they are searched for
  // many bytes at a time; in the default code page nothing else holds these two bytes.
  void Prepare_v(const UnicodeString& sRecord) {
    m_sText = UCSS::ucsToDCP(sRecord);
    SS::Remove(m_sText, '\r');
    SS::Remove(m_sText, '\n');
    m_sText += '\n';
  }
  void Write_v() { m_bGather ? m_obOutput.Add_v(m_sText) : m_obOutput.Write_v(m_sText); }

  void Flush_v() { m_obOutput.Flush_v(); }

private:
  const bool m_bGather;
  CStandardOutput m_obOutput;
  std::string m_sText; // the record, ready to be written
};

// Takes one record for good before it is shown, but not before everything that showing it needs is
// there. One that may or may not be taken is shown: better twice than never.
int Take_n(CCMEBX& obQueue, UnicodeString& sRecord, CCommitBatch& obBatch,
           CRecordOutput& obOutput) {
  obQueue.BeginTran();
  const int nStatus = obQueue.ReceiveMessage(sRecord, WAIT);
  if (nStatus != 0) {
    obQueue.RollbackTran();
    return nStatus;
  }
  try {
    obOutput.Prepare_v(sRecord);
  } catch (...) {
    obQueue.RollbackTran();
    throw;
  }
  try {
    obBatch.Add_v(0, static_cast<size_t>(sRecord.length()));
    obBatch.Commit_v();
  } catch (...) {
    if (obQueue.IsCommitUnknown()) obOutput.Write_v();
    throw;
  }
  return nStatus;
}

// What part of a queue's records so many are: of those that a loop takes off it, or only shows.
CProgressLine::Part PartOf_ob(const CCMEBX& obQueue, long nCount, bool bTakes) {
  return [&obQueue, nCount, bTakes](uint64_t nRecords) {
    const auto nDone = static_cast<double>(nRecords);
    const auto nThere = static_cast<double>(obQueue.KnownMessageCount());
    const double nAll = bTakes && nThere >= 0 ? nDone + nThere : nThere;
    const double nPart = nAll > 0 ? nDone / nAll : -1;
    return nCount > 0 ? std::max(nPart, nDone / static_cast<double>(nCount)) : nPart;
  };
}

} // namespace

UnicodeString CFerryEx::m_sGrep;

void CFerryEx::ProcessFile2Q(CCMEBX* q, long count, long pause, long priority, long expire) {
  const CInterruption obInterruption;
  CRecordInput obInput({q}, count);
  std::string_view sLine;
  UnicodeString sRecord;
  long nSent = 0;
  obInput.Batch_rob().Run_v([&] {
    while (obInput.Read_b(sLine)) {
      UCSS::dcpToUCS(sRecord, sLine);
      if (Passes_b(sRecord, m_sGrep)) {
        SendRecord_v(*q, sRecord, priority, expire);
        obInput.Sent_v(0);
        if (pause > 0) obInput.Batch_rob().Commit_v();
        rwSleep(pause);
        ++nSent;
        --count;
      } else {
        obInput.Dropped_v();
      }
      if (count == 0) break; // a count that was 0 from the start is below it by now: no limit
    }
  });
  Report_v(nSent, "Sent");
}

void CFerryEx::ProcessQ2File(CCMEBX* q, long count, bool peek, long pause) {
  if (count == 0) return;
  const CInterruption obInterruption;
  const bool bTransactional = !peek && m_sGrep.isEmpty();
  CCommitBatch obBatch({q}, "read");
  CRecordOutput obOutput(peek);
  CProgressLine obProgress(STDOUT_FILENO, PartOf_ob(*q, count, !peek));
  UnicodeString sRecord;
  long nReceived = 0;
  int nStatus = 0;
  while (nStatus == 0 && count != 0) {
    obOutput.PrepareNext_v();
    if (CInterruption::Signal_n() != 0) break;
    nStatus = bTransactional ? Take_n(*q, sRecord, obBatch, obOutput) : q->PeekMsg(sRecord, WAIT);
    if (nStatus != 0 || !Passes_b(sRecord, m_sGrep)) continue;
    if (!bTransactional) obOutput.Prepare_v(sRecord);
    if (!bTransactional && !peek) q->DeleteMessage();
    ++nReceived;
    --count;
    obOutput.Write_v();
    obProgress.Passed_v();
    if (pause > 0) obOutput.Flush_v();
    rwSleep(pause);
  }
  obOutput.Flush_v();
  Report_v(nReceived, "Received");
}

void CFerryEx::CleanQueue(CCMEBX* q, long count) {
  const CInterruption obInterruption;
  CCommitBatch obBatch({q}, "removed");
  CProgressLine obProgress(-1, PartOf_ob(*q, count, true));
  UnicodeString sRecord;
  long nRemoved = 0;
  obBatch.Run_v([&] {
    while (CInterruption::Signal_n() == 0) {
      const auto obAsked = Clock::now();
      if (q->ReceiveMessage(sRecord, WAIT) != 0) break;
      const bool bWaited = Clock::now() - obAsked >= WAITED;
      ++nRemoved;
      obProgress.Passed_v();
      obBatch.Add_v(0, static_cast<size_t>(sRecord.length()));
      if (count != -1 && --count <= 0) break;
      // Where records come one by one the next wait is near, and nothing stays open over it.
      if (bWaited) obBatch.Commit_v();
    }
  });
  Report_v(nRemoved, "Purged");
}
