#pragma once

#include "ferry/text/unicode_string.h"

#include <string>

/// One open queue of one queue manager.
///
/// Results: 0 is done, -1 is failed and already reported in the log, -2 is no message (gets and
/// browses only). A failure of severity 3 or above is thrown as VRKBX_Exception instead. Waits are
/// in milliseconds, 0 does not wait. A queue belongs to one thread at a time.
///
/// Puts and gets belong to a unit of work when IsTransactional: they count with CommitTran, or when
/// the object is deleted; RollbackTran undoes them. An exception in between leaves them pending.
class CCMEBX {
public:
  /// Access asked for. Sessions open for everything the queue allows, whatever the value.
  enum QTYPE { QT_ANY = 0, QT_RECEIVE = 1, QT_SEND = 2, QT_BROWSE = 3 };

  CCMEBX() = default;
  CCMEBX(const CCMEBX&) = delete;
  CCMEBX& operator=(const CCMEBX&) = delete;
  virtual ~CCMEBX() = default;

  /// Opens the queue; one of another manager for output only.
  virtual int Open(QTYPE nType) = 0;
  /// Always 0, also when it is not open.
  virtual int Close() = 0;
  /// Does nothing, as ReOpenQueue.
  virtual int ChangeAccess(QTYPE nType) = 0;

  /// Defines the queue as a local one with a maximum depth; deletes it with all that is on it. A
  /// refusal by the queue manager is logged and still 0.
  virtual int CreateQueue(unsigned long nMaxDepth, bool bFlag) = 0;
  virtual int DeleteQueue() = 0;

  /// Puts one message. A priority below 0 means the queue's default; the expiry is in seconds and 0
  /// or less means never. The label is not used.
  virtual int SendMsg(const UnicodeString& sText, int nPriority, long nExpiry,
                      const UnicodeString& sLabel) = 0;
  /// Takes the next message.
  virtual int ReceiveMessage(UnicodeString& sText, long nWait) = 0;
  virtual int ReceiveMessage(std::string& sText, long nWait) = 0;
  /// Reads the first message, with each following call the next one, and leaves it there. After -2
  /// it starts again from the first.
  virtual int PeekMsg(UnicodeString& sText, long nWait) = 0;
  virtual int PeekMsg(std::string& sText, long nWait) = 0;
  /// Removes the message last peeked at, at once; peeking starts again from the first.
  virtual int DeleteMessage() = 0;
  /// The next peek starts from the first.
  virtual void ResetCursor() = 0;

  /// Undoes what is pending, so that a new unit of work starts. Always 0.
  virtual int BeginTran() = 0;
  /// -1 when it failed, which is not logged.
  virtual int RollbackTran() = 0;
  /// -1 when it failed, which is logged and never thrown; see IsCommitUnknown.
  virtual int CommitTran() = 0;
  /// Always true; the flag means nothing.
  virtual bool IsTransactional(bool bFlag) = 0;

  /// Both are the queue's name.
  virtual UnicodeString GetPath() const = 0;
  virtual UnicodeString GetLabel() const = 0;
  /// The current depth; 0 also when it cannot be told, -1 without a command server.
  virtual long GetMessageCount() const = 0;
  /// The same without a word in the log: -1 whenever it cannot be told.
  virtual long KnownMessageCount() const { return -1; }
  virtual int ReOpenQueue() = 0;

  /// How often SendMsg was called.
  virtual int GetSentCount() const = 0;
  /// After a failed CommitTran: nobody here can know whether the unit of work counts. It is false
  /// when it was undone.
  virtual bool IsCommitUnknown() const = 0;
};

/// The factory of queues, and administration that needs no queue object.
///
/// A path is a queue's name, optionally with a label: "NAME[label]". An empty manager is the
/// default queue manager. All of them throw VRKBX_Exception when the client library cannot be
/// loaded; all but QStatus also when the manager cannot be connected to.
namespace BXF {

/// Names the queue protocol; nothing guards it.
extern UnicodeString bxProtocol;

/// A connected queue, not yet opened. The caller owns it.
CCMEBX* CreateBX(UnicodeString sPath, UnicodeString sManager);

/// Whether the queue can be opened for output, over a connection of its own.
bool QExists(const UnicodeString& sPath, const UnicodeString& sManager);

/// Fills sOut with the queue's status or the reason why there is none. The result does not tell
/// which: it is false after a status and true after a failed inquiry. Its connection stays until
/// the process ends, except where there is no command server.
bool QStatus(UnicodeString& sOut, const UChar* pPath, const UChar* pManager);

/// Creates the queue with room for 500,000 messages. The flag is ignored. True means that the
/// command was sent; a refusal by the queue manager is logged.
bool QCreate(UnicodeString sPath, UnicodeString sManager, bool bFlag);

} // namespace BXF
