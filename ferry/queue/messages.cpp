#include "ferry/queue/session.h"
#include "ferry/text/ucss.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>

namespace {

const BXMD DEFAULT_DESCRIPTOR = BXMD_DEFAULT;
const BXGMO DEFAULT_GET_OPTIONS = BXGMO_DEFAULT;
const BXPMO DEFAULT_PUT_OPTIONS = BXPMO_DEFAULT;

constexpr BXLONG DELETE_BUFFER_LENGTH = 10; // the data is not wanted

// What is too long to be told never expires.
BXLONG TenthsOfSeconds(long nSeconds) {
  constexpr long nLongest = std::numeric_limits<BXLONG>::max() / 10;
  return nSeconds > nLongest ? BXEI_UNLIMITED : static_cast<BXLONG>(nSeconds * 10);
}

} // namespace

int CCMEBXSer::SendMsg(const UnicodeString& sText, int nPriority, long nExpiry,
                       const UnicodeString&) {
  ++m_nSentCount;
  BXMD obDescriptor = DEFAULT_DESCRIPTOR;
  std::memcpy(obDescriptor.format, BXFMT_STRING, sizeof obDescriptor.format);
  if (nPriority >= 0) obDescriptor.priority = nPriority;
  if (nExpiry > 0) obDescriptor.expiry = TenthsOfSeconds(nExpiry);
  BXPMO obOptions = DEFAULT_PUT_OPTIONS;
  if (m_bTransactional) obOptions.options += BXPMO_SYNCPOINT;

  const std::string sData = UCSS::ucsToUTF8(sText);
  BXLONG nCompletion = BXCC_FAILED;
  BXLONG nReason = BXRC_NONE;
  BXPUT(m_nConnection, m_nObject, &obDescriptor, &obOptions, static_cast<BXLONG>(sData.size()),
        sData.data(), &nCompletion, &nReason);
  if (nReason == BXRC_NONE || nReason == BXRC_PRIORITY_EXCEEDS_MAXIMUM) return 0;
  HandleError(nReason, "SendMsg Failed");
  return -1;
}

int CCMEBXSer::ReceiveMessage(std::string& sText, long nWait) {
  return Get_n(sText, m_bTransactional ? BXGMO_SYNCPOINT : 0, nWait, "ReceiveMessage failed");
}

int CCMEBXSer::PeekMsg(std::string& sText, long nWait) {
  const BXLONG nBrowse = m_bCursor ? BXGMO_BROWSE_NEXT : BXGMO_BROWSE_FIRST;
  const int nStatus = Get_n(sText, nBrowse, nWait, "PeekMsg Failed");
  if (nStatus == 0) m_bCursor = true;
  if (nStatus == -2) m_bCursor = false;
  return nStatus;
}

// Data is put in UTF-8 and read in the default code page: the two directions differ on purpose.
int CCMEBXSer::ReceiveMessage(UnicodeString& sText, long nWait) {
  m_sNarrow.clear();
  try {
    const int nStatus = ReceiveMessage(m_sNarrow, nWait);
    UCSS::dcpToUCS(sText, m_sNarrow);
    return nStatus;
  } catch (const std::bad_alloc&) {
    // The message may be taken already; the disconnect would make that last.
    if (m_bTransactional) RollbackTran();
    throw;
  }
}

int CCMEBXSer::PeekMsg(UnicodeString& sText, long nWait) {
  m_sNarrow.clear();
  const int nStatus = PeekMsg(m_sNarrow, nWait);
  UCSS::dcpToUCS(sText, m_sNarrow);
  return nStatus;
}

void CCMEBXSer::PrepareGet_v(BXLONG nOptions) {
  if (!m_pBuffer) AllocateBuffer_v(INITIAL_BUFFER_LENGTH);
  *m_pobDescriptor = DEFAULT_DESCRIPTOR;
  m_pobDescriptor->version = BXMD_VERSION_2;
  *m_pobGetOptions = DEFAULT_GET_OPTIONS;
  m_pobGetOptions->version = BXGMO_VERSION_2;
  m_pobGetOptions->matchOptions = BXMO_NONE;
  m_pobGetOptions->options = nOptions;
}

int CCMEBXSer::Get_n(std::string& sText, BXLONG nOptions, long nWait, const char* pContext) {
  PrepareGet_v(nOptions + (nWait != 0 ? BXGMO_WAIT : BXGMO_NO_WAIT));
  m_pobGetOptions->waitInterval = static_cast<BXLONG>(nWait);
  BXLONG nLength = 0;
  BXLONG nCompletion = BXCC_FAILED;
  BXLONG nReason = BXRC_NONE;
  for (;;) {
    BXGET(m_nConnection, m_nObject, m_pobDescriptor.get(), m_pobGetOptions.get(),
          static_cast<BXLONG>(m_nBufferLength), m_pBuffer.get(), &nLength, &nCompletion, &nReason);
    if (nReason != BXRC_TRUNCATED_FAILED) break;
    GrowBuffer_v(nLength);
  }
  if (nCompletion == BXCC_OK) {
    m_pBuffer[static_cast<size_t>(nLength)] = '\0';
    sText.assign(m_pBuffer.get());
    return 0;
  }
  if (nReason == BXRC_NO_MESSAGE_AVAILABLE) return -2;
  HandleError(nReason, pContext);
  return -1;
}

void CCMEBXSer::AllocateBuffer_v(unsigned long nLength) {
  m_pBuffer.reset();
  m_nBufferLength = 0;
  m_pBuffer = std::make_unique_for_overwrite<char[]>(nLength + 1);
  m_nBufferLength = nLength;
}

// To twice the message's length, so that a queue of slowly growing messages does not cost an
// allocation each. The old buffer goes first: both together could be too much.
void CCMEBXSer::GrowBuffer_v(BXLONG nMessageLength) {
  constexpr int64_t nLimit = std::numeric_limits<BXLONG>::max();
  const int64_t nLength = std::min(2 * static_cast<int64_t>(nMessageLength), nLimit);
  AllocateBuffer_v(static_cast<unsigned long>(nLength));
}

int CCMEBXSer::DeleteMessage() {
  PrepareGet_v(BXGMO_MESSAGE_UNDER_CURSOR + BXGMO_ACCEPT_TRUNCATED_MESSAGE);
  BXLONG nLength = 0;
  BXLONG nCompletion = BXCC_FAILED;
  BXLONG nReason = BXRC_NONE;
  BXGET(m_nConnection, m_nObject, m_pobDescriptor.get(), m_pobGetOptions.get(),
        DELETE_BUFFER_LENGTH, m_pBuffer.get(), &nLength, &nCompletion, &nReason);
  m_bCursor = false;
  if (nCompletion == BXCC_OK || nReason == BXRC_NO_MESSAGE_AVAILABLE ||
      nReason == BXRC_TRUNCATED_ACCEPTED)
    return 0;
  HandleError(nReason);
  return -1;
}

// A unit of work starts with the first get or put after what was pending is discarded; the
// manager's own begin call is for other resource managers.
int CCMEBXSer::BeginTran() {
  RollbackTran();
  return 0;
}

// A warning is a success for the commit and a failure for the backout.
int CCMEBXSer::CommitTran() {
  BXLONG nCompletion = BXCC_FAILED;
  BXLONG nReason = BXRC_NONE;
  BXCMIT(m_nConnection, &nCompletion, &nReason);
  m_bCommitUnknown = nCompletion == BXCC_FAILED && nReason == BXRC_OUTCOME_UNKNOWN;
  if (nCompletion != BXCC_FAILED) return 0;
  PrintError(nReason);
  return -1;
}

int CCMEBXSer::RollbackTran() {
  BXLONG nCompletion = BXCC_FAILED;
  BXLONG nReason = BXRC_NONE;
  BXBACK(m_nConnection, &nCompletion, &nReason);
  return nCompletion == BXCC_OK ? 0 : -1;
}
