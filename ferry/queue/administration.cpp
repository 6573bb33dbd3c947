#include "ferry/logging/logger.h"
#include "ferry/queue/admin_command.h"
#include "ferry/queue/client_library.h"
#include "ferry/queue/session.h"
#include "ferry/text/ucss.h"

namespace {

const char* const START_COMMAND_SERVER = "Please start the command server: <strbxcsv QMgrName>";

// Why the command server refused a command, when it says so.
void LogRefusal_v(const CAdminCommand& obCommand) {
  if (!obCommand.Refused_b()) return;
  const BXHBAG nAnswer = obCommand.Answer_n(0);
  CLogger::Log_v(CSeverity::ERR,
                 u"Error returned by the command server: Completion Code = %ld : Reason = %ld",
                 CAdminCommand::Integer_n(nAnswer, BXIA_COMPLETION),
                 CAdminCommand::Integer_n(nAnswer, BXIA_REASON));
}

// The three commands about one local queue that a session sends name their failure alike.
const char* const BUILD_CONTEXT = "CreateQueue Failed";

template <typename... Arguments>
void Append_v(UnicodeString& sOut, const UChar* pFormat, Arguments... arguments) {
  UnicodeString sLine;
  UCSS::ssprintf(sLine, pFormat, arguments...);
  sOut.append(sLine);
}

// A name without the blanks that pad it.
std::string Name_s(BXHBAG nAnswer, BXLONG nSelector) {
  const std::string sPadded = CAdminCommand::Text_s(nAnswer, nSelector, BX_NAME_LENGTH);
  std::string sName(sPadded.size() + 1, '\0');
  BXLONG nCompletion = BXCC_FAILED;
  BXLONG nReason = BXRC_NONE;
  bxTrim(static_cast<BXLONG>(sPadded.size()), sPadded.data(), sName.data(), &nCompletion, &nReason);
  return sName.c_str();
}

std::string Time_s(BXHBAG nAnswer, BXLONG nDate, BXLONG nTime) {
  return CAdminCommand::Text_s(nAnswer, nDate, BX_DATE_LENGTH) +
         CAdminCommand::Text_s(nAnswer, nTime, BX_TIME_LENGTH);
}

// The line shows the cluster's name where the queue tells a manager.
void AppendManager_v(UnicodeString& sOut, BXHBAG nAnswer, const std::string& sCluster,
                     const UnicodeString& sManager) {
  BXLONG nLength = 0;
  CAdminCommand::Text_s(nAnswer, BXCA_MANAGER_NAME, BX_NAME_LENGTH, &nLength);
  if (nLength != 0)
    Append_v(sOut, u"Queue Manager Name  = %s\n", sCluster.c_str());
  else if (sManager.isEmpty())
    Append_v(sOut, u"Queue Manager Name  = %s\n", "Default Queue Manager");
  else
    Append_v(sOut, u"Queue Manager Name  = %S\n", UCSS::getConstUnicodeStringContent(sManager));
}

void AppendQueue_v(UnicodeString& sOut, BXHBAG nAnswer, const UnicodeString& sManager) {
  const auto Integer = [nAnswer](BXLONG nSelector) {
    return CAdminCommand::Integer_n(nAnswer, nSelector);
  };
  const std::string sCluster = Name_s(nAnswer, BXCA_CLUSTER_NAME);
  Append_v(sOut, u"Queue Name          = %s\n", Name_s(nAnswer, BXCA_QUEUE_NAME).c_str());
  Append_v(sOut, u"Cluster Name        = %s\n", sCluster.c_str());
  AppendManager_v(sOut, nAnswer, sCluster, sManager);
  Append_v(sOut, u"Max Depth           = %ld\n", Integer(BXIA_MAX_DEPTH));
  Append_v(sOut, u"Current Depth       = %ld\n", Integer(BXIA_CURRENT_DEPTH));
  Append_v(sOut, u"Max Message Size    = %ld\n", Integer(BXIA_MAX_MESSAGE_LENGTH));
  Append_v(sOut, u"Default Persistance = %s\n",
           Integer(BXIA_DEFAULT_PERSISTENCE) == 0 ? "Not Persistent" : "Persistent");
  Append_v(sOut, u"Create Time         = %s\n",
           Time_s(nAnswer, BXCA_CREATION_DATE, BXCA_CREATION_TIME).c_str());
  Append_v(sOut, u"Modify Time         = %s\n",
           Time_s(nAnswer, BXCA_ALTERATION_DATE, BXCA_ALTERATION_TIME).c_str());
}

void AppendFailure_v(UnicodeString& sOut, const CAdminCommand& obCommand) {
  Append_v(sOut, u"Call to get queue attributes failed: Completion Code = %ld : Reason = %ld\n",
           obCommand.Completion_n(), obCommand.Reason_n());
  if (!obCommand.Refused_b()) return;
  const BXHBAG nAnswer = obCommand.Answer_n(0);
  Append_v(sOut, u"Error returned by the command server: Completion Code = %ld : Reason = %ld\n",
           CAdminCommand::Integer_n(nAnswer, BXIA_COMPLETION),
           CAdminCommand::Integer_n(nAnswer, BXIA_REASON));
}

} // namespace

int CCMEBXSer::CreateQueue(unsigned long nMaxDepth, bool) {
  CAdminCommand obCommand;
  obCommand.Add_rob(BXCA_QUEUE_NAME, m_sPath);
  if (!m_sLabel.isEmpty()) obCommand.Add_rob(BXCA_CLUSTER_NAME, m_sLabel);
  obCommand.Add_rob(BXIA_QUEUE_TYPE, BXQT_LOCAL)
      .Add_rob(BXIA_MAX_DEPTH, static_cast<BXLONG>(nMaxDepth));
  if (!obCommand.Built_b()) {
    HandleError(obCommand.Reason_n(), BUILD_CONTEXT);
    return -1;
  }
  const bool bCreated = obCommand.Execute_b(m_nConnection, BXCMD_CREATE_QUEUE);
  const UChar* pPath = UCSS::getConstUnicodeStringContent(m_sPath);
  if (obCommand.NoCommandServer_b()) {
    CLogger::Log_v(CSeverity::ERR, u"%s", START_COMMAND_SERVER);
    CLogger::Log_v(CSeverity::ERR, u"compCode = %ld, Reason = %ld", obCommand.Completion_n(),
                   obCommand.Reason_n());
  } else if (bCreated) {
    CLogger::Log_v(CSeverity::DBUG, u"Local queue %S successfully created", pPath);
  } else {
    CLogger::Log_v(CSeverity::ERR,
                   u"Creation of local queue %S failed: Completion Code = %ld : Reason = %ld",
                   pPath, obCommand.Completion_n(), obCommand.Reason_n());
    LogRefusal_v(obCommand);
  }
  return 0;
}

int CCMEBXSer::DeleteQueue() {
  Close();
  CAdminCommand obCommand;
  obCommand.Add_rob(BXCA_QUEUE_NAME, m_sPath)
      .Add_rob(BXIA_QUEUE_TYPE, BXQT_LOCAL)
      .Add_rob(BXIA_PURGE, BXPO_YES);
  if (!obCommand.Built_b()) {
    HandleError(obCommand.Reason_n(), BUILD_CONTEXT);
    return -1;
  }
  const bool bDeleted = obCommand.Execute_b(m_nConnection, BXCMD_DELETE_QUEUE);
  if (obCommand.NoCommandServer_b()) HandleError(obCommand.Reason_n(), START_COMMAND_SERVER);
  if (!bDeleted) LogRefusal_v(obCommand);
  return 0;
}

bool CCMEBXSer::AskDepth_b(CAdminCommand& obCommand, long& nDepth) const {
  obCommand.Add_rob(BXCA_QUEUE_NAME, m_sPath)
      .Add_rob(BXIA_QUEUE_TYPE, BXQT_LOCAL)
      .Ask_rob({BXIA_CURRENT_DEPTH});
  if (!obCommand.Built_b() || !obCommand.Execute_b(m_nConnection, BXCMD_INQUIRE_QUEUE))
    return false;
  nDepth = CAdminCommand::Integer_n(obCommand.Answer_n(0), BXIA_CURRENT_DEPTH);
  return true;
}

long CCMEBXSer::GetMessageCount() const {
  CAdminCommand obCommand;
  long nDepth = 0;
  const bool bAnswered = AskDepth_b(obCommand, nDepth);
  if (!obCommand.Built_b()) {
    HandleError(obCommand.Reason_n(), BUILD_CONTEXT);
    return -1;
  }
  if (obCommand.NoCommandServer_b()) {
    CLogger::Log_v(CSeverity::INFO, u"%s", START_COMMAND_SERVER);
    return -1;
  }
  if (bAnswered) return nDepth;
  CLogger::Log_v(CSeverity::ERR,
                 u"Call to get queue attributes failed: Completion Code = %ld : Reason = %ld",
                 obCommand.Completion_n(), obCommand.Reason_n());
  LogRefusal_v(obCommand);
  return 0;
}

long CCMEBXSer::KnownMessageCount() const {
  CAdminCommand obCommand;
  long nDepth = -1;
  AskDepth_b(obCommand, nDepth);
  return nDepth;
}

// The connection is left to the end of the process, except where the command server is stopped.
bool CCMEBXSer::QStatus(UnicodeString& sOut, const UChar* pPath, const UChar* pManager) {
  [[maybe_unused]] static const bool s_bLoaded = InitBXMUntilExit();
  const UnicodeString sManager(pManager);
  BXHCONN nConnection = BXHC_UNUSABLE;
  BXLONG nStatus = BXCC_FAILED; // for both codes: holds the one that the library writes last
  BXCONN(UCSS::ucsToDCP(sManager).c_str(), &nConnection, &nStatus, &nStatus);
  if (nStatus == BXCC_FAILED) {
    UCSS::ssprintf(sOut, u"BXCC_FAILED: %d\n", nStatus);
    return false;
  }

  CAdminCommand obCommand;
  obCommand.Add_rob(BXCA_QUEUE_NAME, UnicodeString(pPath))
      .Add_rob(BXIA_QUEUE_TYPE, BXQT_LOCAL)
      .Ask_rob({BXIA_CURRENT_DEPTH, BXIA_MAX_DEPTH, BXIA_DEFAULT_PERSISTENCE,
                BXIA_MAX_MESSAGE_LENGTH, BXCA_CREATION_DATE, BXCA_CREATION_TIME, BXCA_QUEUE_NAME,
                BXCA_ALTERATION_DATE, BXCA_ALTERATION_TIME, BXCA_CLUSTER_NAME, BXCA_MANAGER_NAME});
  const bool bAnswered =
      obCommand.Built_b() && obCommand.Execute_b(nConnection, BXCMD_INQUIRE_QUEUE);
  bool bResult = false;
  if (obCommand.NoCommandServer_b()) {
    Append_v(sOut, u"Please start the command server: <strbxcsv QMgrName>\n");
    BXLONG nReason = BXRC_NONE;
    BXDISC(&nConnection, &nStatus, &nReason);
    bResult = true;
  }
  if (!bAnswered) {
    AppendFailure_v(sOut, obCommand);
    return true;
  }
  const BXLONG nAnswers = obCommand.CountAnswers_n();
  for (BXLONG n = 0; n < nAnswers; ++n) AppendQueue_v(sOut, obCommand.Answer_n(n), sManager);
  return bResult;
}
