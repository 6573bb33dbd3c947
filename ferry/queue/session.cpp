#include "ferry/queue/session.h"

#include "ferry/logging/logger.h"
#include "ferry/queue/client_library.h"
#include "ferry/text/ucss.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace {

constexpr BXLONG OPEN_FOR_ALL =
    BXOO_INPUT_SHARED + BXOO_BROWSE + BXOO_OUTPUT + BXOO_FAIL_IF_QUIESCING;
constexpr BXLONG OPEN_FOR_OUTPUT = BXOO_OUTPUT + BXOO_FAIL_IF_QUIESCING;

// Connects to a manager (empty: the default one) with a handle that is not shared between threads.
// The codes tell whether it worked.
void ConnectX_v(const UnicodeString& sManager, BXHCONN& nConnection, BXLONG& nCompletion,
                BXLONG& nReason) {
  BXCNO obOptions = BXCNO_DEFAULT;
  obOptions.version = BXCNO_VERSION_4;
  obOptions.options = BXCNO_HANDLE_SHARE_NONE;
  BXCONNX(UCSS::ucsToDCP(sManager).c_str(), &obOptions, &nConnection, &nCompletion, &nReason);
}

// Puts a name into a descriptor's field, zero-padded, cut at the field's end.
void SetName_v(BXCHAR (&aField)[BX_NAME_LENGTH], const UnicodeString& sName) {
  const std::string sNarrow = UCSS::ucsToDCP(sName);
  std::memset(aField, 0, sizeof aField);
  std::memcpy(aField, sNarrow.data(), std::min(sNarrow.size(), sizeof aField));
}

const char* WhyNoConnection(BXLONG nReason) {
  switch (nReason) {
  case BXRC_Q_DELETED: return "BXRC_Q_DELETED: Queue has been deleted.";
  case BXRC_Q_FULL: return "BXRC_Q_FULL: Queue is full";
  case BXRC_Q_NOT_EMPTY: return "BXRC_Q_NOT_EMPTY: Queue not empty";
  case BXRC_Q_MGR_NAME_ERROR: return "BXRC_Q_MGR_NAME_ERROR: Queue manager Name is invalid";
  case BXRC_Q_MGR_NOT_AVAILABLE: return "BXRC_Q_MGR_NOT_AVAILABLE: Queue manager is not available";
  default: return "See BX Documentation for definition";
  }
}

[[noreturn]] void ThrowNoConnection(BXLONG nCompletion, BXLONG nReason) {
  const char* pWhy = WhyNoConnection(nReason);
  CLogger::TryLog_b(CSeverity::ERR, u"BXCONNX FAILED: %ld %ld: %s", nCompletion, nReason, pWhy);
  UnicodeString sText;
  UCSS::ssprintf(sText, u"BXCONN ended with reason code %ld: %s\n", nReason, pWhy);
  throw VRKBX_Exception::genericError("", sText, nReason, UnicodeString(), 0, VRK_CRITICAL_ERROR);
}

bool CanOpen_b(BXHCONN nConnection, const UnicodeString& sPath) {
  BXOD obDescriptor = BXOD_DEFAULT;
  SetName_v(obDescriptor.objectName, sPath);
  BXHOBJ nObject = BXHO_UNUSABLE;
  BXLONG nCompletion = BXCC_FAILED;
  BXLONG nReason = BXRC_NONE;
  BXOPEN(nConnection, &obDescriptor, BXOO_OUTPUT + BXOO_FAIL_IF_QUIESCING, &nObject, &nCompletion,
         &nReason);
  if (nReason != BXRC_NONE) return false;
  BXCLOSE(nConnection, &nObject, BXCO_NONE, &nCompletion, &nReason);
  return true;
}

} // namespace

CCMEBXSer::CCMEBXSer(UnicodeString sPath, UnicodeString sManager)
    : m_sPath(std::move(sPath)), m_sManager(std::move(sManager)),
      m_pobDescriptor(std::make_unique<BXMD>()), m_pobGetOptions(std::make_unique<BXGMO>()) {
  AllocateBuffer_v(INITIAL_BUFFER_LENGTH);
  [[maybe_unused]] static const bool s_bLoaded = InitBXMUntilExit();
  SplitPath_v();
  if (m_nConnectionCount == 0) Connect_v();
}

CCMEBXSer::~CCMEBXSer() {
  Close();
  if (--m_nConnectionCount == 0 && m_nConnection != 0) Disconnect_v();
}

void CCMEBXSer::SplitPath_v() {
  const int32_t nOpen = m_sPath.indexOf(u'[');
  if (nOpen < 0) return;
  m_sLabel = UnicodeString(m_sPath, nOpen + 1);
  m_sPath.truncate(nOpen);
  const int32_t nClose = m_sLabel.indexOf(u']');
  if (nClose >= 0) m_sLabel.truncate(nClose);
}

void CCMEBXSer::Connect_v() {
  CLogger::Log_v(CSeverity::DBUG, u"Connecting to BX Manager %S",
                 UCSS::getConstUnicodeStringContent(m_sManager));
  BXLONG nCompletion = BXCC_FAILED;
  BXLONG nReason = BXRC_NONE;
  ConnectX_v(m_sManager, m_nConnection, nCompletion, nReason);
  if (nCompletion == BXCC_FAILED) {
    CLogger::TryLog_b(CSeverity::ERR, u"BXCONNX FAILED: %ld %ld", nCompletion, nReason);
    UnicodeString sText;
    UCSS::ssprintf(sText, u"BXCONN ended with reason code %ld\n", nReason);
    throw VRKBX_Exception::genericError("", sText, nReason, UnicodeString(), 0, VRK_CRITICAL_ERROR);
  }
  m_nConnectionCount = 1;
}

// Runs in the destructor: what goes wrong can only be logged.
void CCMEBXSer::Disconnect_v() {
  CLogger::TryLog_b(CSeverity::DBUG, u"Disconnecting from BX Manager %S",
                    UCSS::getConstUnicodeStringContent(m_sManager));
  BXLONG nCompletion = BXCC_OK;
  BXLONG nReason = BXRC_NONE;
  BXDISC(&m_nConnection, &nCompletion, &nReason);
  if (nCompletion == BXCC_FAILED) PrintError(nReason);
  m_nConnection = 0;
}

int CCMEBXSer::Open(QTYPE) {
  m_obObjectDescriptor = BXOD BXOD_DEFAULT;
  SetName_v(m_obObjectDescriptor.objectName, m_sPath);
  BXLONG nCompletion = BXCC_FAILED;
  BXLONG nReason = BXRC_NONE;
  BXOPEN(m_nConnection, &m_obObjectDescriptor, OPEN_FOR_ALL, &m_nObject, &nCompletion, &nReason);
  if (nReason == BXRC_UNKNOWN_OBJECT) {
    // A queue of another manager is known for output only.
    BXOPEN(m_nConnection, &m_obObjectDescriptor, OPEN_FOR_OUTPUT, &m_nObject, &nCompletion,
           &nReason);
  }
  if (nReason == BXRC_NONE) return 0;
  HandleError(nReason);
  return -1;
}

int CCMEBXSer::Close() {
  BXLONG nCompletion = BXCC_OK;
  BXLONG nReason = BXRC_NONE;
  BXCLOSE(m_nConnection, &m_nObject, BXCO_NONE, &nCompletion, &nReason);
  return 0;
}

bool CCMEBXSer::QExists(const UnicodeString& sPath, const UnicodeString& sManager) {
  [[maybe_unused]] static const bool s_bLoaded = InitBXMUntilExit();
  BXHCONN nConnection = BXHC_UNUSABLE;
  BXLONG nCompletion = BXCC_FAILED;
  BXLONG nReason = BXRC_NONE;
  ConnectX_v(sManager, nConnection, nCompletion, nReason);
  if (nCompletion == BXCC_FAILED) ThrowNoConnection(nCompletion, nReason);
  const bool bExists = CanOpen_b(nConnection, sPath);
  BXDISC(&nConnection, &nCompletion, &nReason);
  return bExists;
}
