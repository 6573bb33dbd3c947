#pragma once

#include "ferry/driver/commit_batch.h"
#include "ferry/driver/line_reader.h"
#include "ferry/queue/queue.h"

/// The lines of standard input on their way to queues. They are committed as CCommitBatch does, and
/// before every wait for more.
///
/// In the end, whatever brought it about, the input stands at the first line that no queue has for
/// sure, where it can be repositioned: the next program on the same file goes on from there.
class CRecordInput {
public:
  /// The queues must outlive it.
  explicit CRecordInput(const std::vector<CCMEBX*>& aQueues);
  ~CRecordInput();
  CRecordInput(const CRecordInput&) = delete;
  CRecordInput& operator=(const CRecordInput&) = delete;

  /// The next line; see CLineReader::Read_b.
  bool Read_b(std::string_view& sLine) { return m_obReader.Read_b(sLine); }
  /// The line just read is put on a queue, or is not wanted. One of which neither is said, because
  /// of a failure or a signal, is given back.
  void Sent_v(size_t nQueue);
  void Dropped_v();

  CCommitBatch& Batch_rob() { return m_obBatch; }

private:
  size_t Done_n();

  CCommitBatch m_obBatch;
  CLineReader m_obReader;
  uint64_t m_nDone = 0; // where the last line that was dealt with ends
};

/// Whether a record passes a filter; everything passes an empty one.
bool Passes_b(const UnicodeString& sRecord, const UnicodeString& sGrep);

/// Sends a record; throws VRK_Exception where the queue only tells that it did not.
void SendRecord_v(CCMEBX& obQueue, const UnicodeString& sRecord, long nPriority, long nExpire);
