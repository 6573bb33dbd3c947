#pragma once

#include "ferry/queue/queue.h"

/// The factory of queues, and administration that needs no queue object.
///
/// A path is a queue's name, optionally with a label: "NAME[label]". An empty manager is the
/// default queue manager. All of them throw VRKBX_Exception when the client library cannot be
/// loaded; all but QStatus also when the manager cannot be connected to.
namespace BXF {

/// Names the queue protocol.
extern UnicodeString bxProtocol;

/// A connected queue, not yet opened. The caller owns it.
CCMEBX* CreateBX(UnicodeString sPath, UnicodeString sManager);

bool QExists(const UnicodeString& sPath, const UnicodeString& sManager);

/// Fills sOut with the queue's status or the reason why there is none. The result does not tell
/// which: it is false after a status and true after a failed inquiry.
bool QStatus(UnicodeString& sOut, const UChar* pPath, const UChar* pManager);

/// Creates the queue with room for 500,000 messages. The flag is ignored. True means that the
/// command was sent; a refusal by the queue manager is logged.
bool QCreate(UnicodeString sPath, UnicodeString sManager, bool bFlag);

} // namespace BXF
