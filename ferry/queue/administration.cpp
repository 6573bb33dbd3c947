#include "ferry/logging/logger.h"
#include "ferry/queue/admin_command.h"
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

long CCMEBXSer::GetMessageCount() const {
  CAdminCommand obCommand;
  obCommand.Add_rob(BXCA_QUEUE_NAME, m_sPath)
      .Add_rob(BXIA_QUEUE_TYPE, BXQT_LOCAL)
      .Ask_rob({BXIA_CURRENT_DEPTH});
  if (!obCommand.Built_b()) {
    HandleError(obCommand.Reason_n(), BUILD_CONTEXT);
    return -1;
  }
  const bool bAnswered = obCommand.Execute_b(m_nConnection, BXCMD_INQUIRE_QUEUE);
  if (obCommand.NoCommandServer_b()) {
    CLogger::Log_v(CSeverity::INFO, u"%s", START_COMMAND_SERVER);
    return -1;
  }
  if (bAnswered) return CAdminCommand::Integer_n(obCommand.Answer_n(0), BXIA_CURRENT_DEPTH);
  CLogger::Log_v(CSeverity::ERR,
                 u"Call to get queue attributes failed: Completion Code = %ld : Reason = %ld",
                 obCommand.Completion_n(), obCommand.Reason_n());
  LogRefusal_v(obCommand);
  return 0;
}
