#pragma once

#include "bx/bx.h"
#include "ferry/text/unicode_string.h"

#include <initializer_list>
#include <string>

/// A command to a queue manager's command server: the bags of its arguments and of its answer.
///
/// Arguments are added first; after one that could not be added, Built_b is false and nothing more
/// is added. Completion_n and Reason_n tell about the last call.
class CAdminCommand {
public:
  CAdminCommand();
  ~CAdminCommand();
  CAdminCommand(const CAdminCommand&) = delete;
  CAdminCommand& operator=(const CAdminCommand&) = delete;

  CAdminCommand& Add_rob(BXLONG nSelector, const UnicodeString& sText);
  CAdminCommand& Add_rob(BXLONG nSelector, BXLONG nValue);
  CAdminCommand& Ask_rob(std::initializer_list<BXLONG> aSelectors);
  bool Built_b() const { return m_bBuilt; }

  /// Sends the command and waits for the answer; true when it was carried out.
  bool Execute_b(BXHCONN nConnection, BXLONG nCommand);
  BXLONG Completion_n() const { return m_nCompletion; }
  BXLONG Reason_n() const { return m_nReason; }
  bool NoCommandServer_b() const { return m_nReason == BXRC_COMMAND_SERVER_NOT_AVAILABLE; }
  /// The command server refused the command: its own codes are in the first answer.
  bool Refused_b() const { return m_nReason == BXRC_COMMAND_FAILED; }

  /// The answers, one for each queue, and their items. What is not there is 0 or empty, and the
  /// codes above stay as they are.
  BXLONG CountAnswers_n() const;
  BXHBAG Answer_n(BXLONG nIndex) const;
  static BXLONG Integer_n(BXHBAG nAnswer, BXLONG nSelector);
  /// A text of a fixed length, padded with blanks. pLength receives its length without padding.
  static std::string Text_s(BXHBAG nAnswer, BXLONG nSelector, BXLONG nLength,
                            BXLONG* pLength = nullptr);

private:
  bool Did_b() { return m_bBuilt = m_bBuilt && m_nCompletion == BXCC_OK; }

  BXHBAG m_nCommand = BXHB_UNUSABLE;
  BXHBAG m_nAnswers = BXHB_UNUSABLE;
  BXLONG m_nCompletion = BXCC_OK;
  BXLONG m_nReason = BXRC_NONE;
  bool m_bBuilt = true;
};
