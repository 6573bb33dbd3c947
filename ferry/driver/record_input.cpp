#include "ferry/driver/record_input.h"

#include "ferry/driver/interruption.h"
#include "ferry/driver/standard_streams.h"
#include "ferry/errors/exception.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr size_t PIECE_SIZE = CLineReader::BUFFER_SIZE - 1;

bool IsContinuation_b(char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; }

size_t CharacterLength_n(char cLead) {
  const auto n = static_cast<unsigned char>(cLead);
  return n >= 0xF0 ? 4 : n >= 0xE0 ? 3 : n >= 0xC0 ? 2 : 1;
}

// The length of a piece of at most PIECE_SIZE bytes that does not end within a character.
size_t WholeCharacters_n(const char* pText) {
  size_t nLead = PIECE_SIZE - 1;
  while (nLead > PIECE_SIZE - 4 && IsContinuation_b(pText[nLead])) --nLead;
  return nLead + CharacterLength_n(pText[nLead]) > PIECE_SIZE ? nLead : PIECE_SIZE;
}

const UnicodeString LABEL(u"Ferry Message");

} // namespace

CLineReader::CLineReader(int nDescriptor, std::function<void()> obBeforeWait)
    : m_nDescriptor(nDescriptor), m_obBeforeWait(std::move(obBeforeWait)),
      m_pBuffer(std::make_unique_for_overwrite<char[]>(BUFFER_SIZE)) {}

void CLineReader::LeaveAt_v(uint64_t nOffset) {
  const auto nLeft = static_cast<off_t>(m_nRead - nOffset);
  if (nLeft > 0) ::lseek(m_nDescriptor, -nLeft, SEEK_CUR);
}

bool CLineReader::Read_b(std::string_view& sLine) {
  size_t nScanned = 0;
  while (CInterruption::Signal_n() == 0) {
    const std::string_view sThere(m_pBuffer.get() + m_nBegin, m_nEnd - m_nBegin);
    const size_t nLength = sThere.find('\n', nScanned) + 1; // 0 when there is none
    if (nLength > 0 && nLength <= PIECE_SIZE) return Take_b(nLength, sLine);
    if (sThere.size() >= PIECE_SIZE) return Take_b(WholeCharacters_n(sThere.data()), sLine);
    nScanned = sThere.size();
    if (!Fill_b()) return Take_b(nScanned, sLine);
  }
  return false;
}

bool CLineReader::Take_b(size_t nLength, std::string_view& sLine) {
  sLine = std::string_view(m_pBuffer.get() + m_nBegin, nLength);
  m_nBegin += nLength;
  return nLength != 0;
}

// False at the end of input. A signal, like input that went elsewhere meanwhile, fills nothing.
bool CLineReader::Fill_b() {
  if (m_bEnd) return false;
  std::memmove(m_pBuffer.get(), m_pBuffer.get() + m_nBegin, m_nEnd - m_nBegin);
  m_nEnd -= m_nBegin;
  m_nBegin = 0;
  if (CInterruption::Wait_n(m_nDescriptor, POLLIN, 0) == 0) {
    m_obBeforeWait();
    if (CInterruption::Wait_n(m_nDescriptor, POLLIN, -1) == 0) return true;
  }
  const ssize_t nRead = ::read(m_nDescriptor, m_pBuffer.get() + m_nEnd, BUFFER_SIZE - m_nEnd);
  if (nRead < 0 && errno != EINTR && errno != EAGAIN)
    ThrowStreamError("Cannot read standard input");
  m_bEnd = nRead == 0;
  if (nRead > 0) {
    m_nEnd += static_cast<size_t>(nRead);
    m_nRead += static_cast<uint64_t>(nRead);
  }
  return !m_bEnd;
}

CRecordInput::CRecordInput(const std::vector<CCMEBX*>& aQueues, long nCount)
    : m_nCount(nCount), m_nStart(::lseek(STDIN_FILENO, 0, SEEK_CUR)),
      m_obBatch(aQueues, "sent", m_nStart >= 0),
      m_obReader(STDIN_FILENO, [this] { m_obBatch.Commit_v(); }),
      m_obProgress(STDIN_FILENO, [this](uint64_t nLines) { return Part_f(nLines); }) {}

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
  m_obProgress.Passed_v();
  return m_nDone - nBegin;
}

// A file may end before the count is reached, and the other way round.
double CRecordInput::Part_f(uint64_t nLines) const {
  struct stat obStatus {};
  double nPart = m_nCount > 0 ? static_cast<double>(nLines) / static_cast<double>(m_nCount) : -1;
  if (m_nStart >= 0 && ::fstat(STDIN_FILENO, &obStatus) == 0 && obStatus.st_size > m_nStart)
    nPart = std::max(nPart, static_cast<double>(m_nDone) /
                                static_cast<double>(obStatus.st_size - m_nStart));
  return nPart;
}

bool Passes_b(const UnicodeString& sRecord, const UnicodeString& sGrep) {
  return sGrep.isEmpty() || (!sGrep.isBogus() && sRecord.indexOf(sGrep) >= 0);
}

void SendRecord_v(CCMEBX& obQueue, const UnicodeString& sRecord, long nPriority, long nExpire) {
  if (obQueue.SendMsg(sRecord, static_cast<int>(nPriority), nExpire, LABEL) == 0) return;
  const UnicodeString sText = UnicodeString(u"Record not sent to queue ") + obQueue.GetPath();
  throw VRK_Exception::genericError("", sText, 0, VRK_CRITICAL_ERROR);
}
