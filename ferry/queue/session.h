#pragma once

#include "bx/bx.h"
#include "ferry/errors/bx_exception.h"
#include "ferry/queue/queue.h"

#include <memory>

class CAdminCommand;

/// The queue as a connection to a queue manager and a queue opened on it, under syncpoint.
///
/// The destructor closes and disconnects, which commits what is pending; it never throws.
class CCMEBXSer : public CCMEBX {
public:
  /// Connects. The path is a queue's name or "NAME[label]"; an empty manager is the default one.
  /// Throws VRKBX_Exception.
  CCMEBXSer(UnicodeString sPath, UnicodeString sManager);
  ~CCMEBXSer() override;

  int Open(QTYPE nType) override;
  int Close() override;
  int ChangeAccess(QTYPE) override { return 0; }

  int CreateQueue(unsigned long nMaxDepth, bool bFlag) override;
  int DeleteQueue() override;

  int SendMsg(const UnicodeString& sText, int nPriority, long nExpiry,
              const UnicodeString& sLabel) override;
  int ReceiveMessage(UnicodeString& sText, long nWait) override;
  int ReceiveMessage(std::string& sText, long nWait) override;
  int PeekMsg(UnicodeString& sText, long nWait) override;
  int PeekMsg(std::string& sText, long nWait) override;
  int DeleteMessage() override;
  void ResetCursor() override { m_bCursor = false; }

  int BeginTran() override;
  int RollbackTran() override;
  int CommitTran() override;
  bool IsTransactional(bool) override { return m_bTransactional; }

  UnicodeString GetPath() const override { return m_sPath; }
  UnicodeString GetLabel() const override { return m_sPath; }
  long GetMessageCount() const override;
  long KnownMessageCount() const override;
  int ReOpenQueue() override { return 0; }

  int GetSentCount() const override { return m_nSentCount; }
  bool IsCommitUnknown() const override { return m_bCommitUnknown; }

  /// Over connections of their own; see BXF.
  static bool QExists(const UnicodeString& sPath, const UnicodeString& sManager);
  static bool QStatus(UnicodeString& sOut, const UChar* pPath, const UChar* pManager);

  /// What a reason code means, "Unknown error" when it is not known.
  static UnicodeString GetErrorText(long nReason);
  /// The code, severity and name of the category that a reason code belongs to.
  static unsigned long GetBXSExceptionCode(long nReason, VRK_Severity& nSeverity,
                                           std::string& sCategory);
  /// Logs the queue, the reason code and its text, as far as the log can be written.
  void PrintError(long nReason) const noexcept;
  /// Logs a failed call, records it and throws it as VRKBX_Exception when its severity is 3 or
  /// above; otherwise returns its category's code. The context may be null.
  unsigned long HandleError(long nReason, const char* pContext = nullptr) const;

private:
  static constexpr unsigned long INITIAL_BUFFER_LENGTH = 24576;

  bool AskDepth_b(CAdminCommand& obCommand, long& nDepth) const;
  void SplitPath_v();
  void Connect_v();
  void Disconnect_v();
  int Get_n(std::string& sText, BXLONG nOptions, long nWait, const char* pContext);
  void PrepareGet_v(BXLONG nOptions);
  void AllocateBuffer_v(unsigned long nLength);
  void GrowBuffer_v(BXLONG nMessageLength);

  int m_nSentCount = 0;
  UnicodeString m_sPath;
  UnicodeString m_sLabel;
  UnicodeString m_sManager;
  BXOD m_obObjectDescriptor = BXOD_DEFAULT;
  BXHOBJ m_nObject = BXHO_UNUSABLE;
  std::unique_ptr<char[]> m_pBuffer; // none after a growth that failed, until it is needed again
  std::unique_ptr<BXMD> m_pobDescriptor;
  std::unique_ptr<BXGMO> m_pobGetOptions;
  unsigned long m_nBufferLength = 0; // usable; a byte more is there for a terminating zero
  bool m_bTransactional = true;
  bool m_bCursor = false;
  bool m_bCommitUnknown = false;
  BXHCONN m_nConnection = 0;
  int m_nConnectionCount = 0;
  mutable VRKBX_Exception m_obError; // never cleared: earlier failures travel with later ones
  std::string m_sNarrow;             // reused by the gets of Unicode text
};
