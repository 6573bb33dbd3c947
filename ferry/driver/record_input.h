#pragma once

#include "ferry/driver/commit_batch.h"
#include "ferry/driver/progress_line.h"
#include "ferry/queue/queue.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <sys/types.h>

/// Reads lines from a descriptor, newline included, in pieces of at most 409,599 bytes. A longer
/// line comes in several pieces, none of which ends within a UTF-8 character. Bytes of any value
/// belong to their line, zero too. The last line need not have a newline.
///
/// Like standard I/O it reads ahead, and the end of the input is the end, also on a terminal where
/// more could follow.
class CLineReader {
public:
  /// beforeWait is called whenever a read would have to wait for input.
  CLineReader(int nDescriptor, std::function<void()> obBeforeWait);
  CLineReader(const CLineReader&) = delete;
  CLineReader& operator=(const CLineReader&) = delete;

  /// The next piece, valid until the next call. False at the end of input and when a signal asks
  /// for the end (CInterruption). Throws VRK_Exception when reading fails.
  bool Read_b(std::string_view& sLine);
  /// Where the last piece ends, in bytes from where reading began.
  uint64_t End_n() const { return m_nRead - (m_nEnd - m_nBegin); }
  /// Gives back what was read behind such a place, where the input can be repositioned.
  void LeaveAt_v(uint64_t nOffset);

  static constexpr size_t BUFFER_SIZE = 409600;

private:
  bool Fill_b();
  bool Take_b(size_t nLength, std::string_view& sLine);

  const int m_nDescriptor;
  const std::function<void()> m_obBeforeWait;
  const std::unique_ptr<char[]> m_pBuffer;
  size_t m_nBegin = 0; // what was read and not yet returned
  size_t m_nEnd = 0;
  uint64_t m_nRead = 0;
  bool m_bEnd = false; // of the input
};

/// The lines of standard input on their way to queues. They are committed as CCommitBatch does, and
/// before every wait for more. A progress line tells how many of them are dealt with.
///
/// In the end, whatever brought it about, the input stands at the first line that no queue has for
/// sure, where it can be repositioned: the next program on the same file goes on from there.
class CRecordInput {
public:
  /// The queues must outlive it. nCount: how many lines are wanted; 0 or less is no limit.
  explicit CRecordInput(const std::vector<CCMEBX*>& aQueues, long nCount = -1);
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
  double Part_f(uint64_t nLines) const;

  const long m_nCount;
  const off_t m_nStart; // of the input, where it can be repositioned; else -1
  CCommitBatch m_obBatch;
  CLineReader m_obReader;
  uint64_t m_nDone = 0; // where the last line that was dealt with ends
  CProgressLine m_obProgress;
};

/// Whether a record holds a filter's text; everything passes an empty filter, nothing a bogus one.
bool Passes_b(const UnicodeString& sRecord, const UnicodeString& sGrep);

/// Sends a record in the queue's unit of work; priority and expiry are as in CCMEBX::SendMsg.
/// Throws VRK_Exception where the queue only tells that it did not.
void SendRecord_v(CCMEBX& obQueue, const UnicodeString& sRecord, long nPriority, long nExpire);
