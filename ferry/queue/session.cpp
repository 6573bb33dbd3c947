#include "ferry/queue/session.h"

#include "ferry/logging/logger.h"
#include "ferry/queue/client_library.h"
#include "ferry/queue/connect.h"
#include "ferry/text/ucss.h"

namespace {

constexpr BXLONG OPEN_FOR_ALL =
    BXOO_INPUT_SHARED + BXOO_BROWSE + BXOO_OUTPUT + BXOO_FAIL_IF_QUIESCING;
constexpr BXLONG OPEN_FOR_OUTPUT = BXOO_OUTPUT + BXOO_FAIL_IF_QUIESCING;

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
