#include "ferry/queue/queue.h"

#include "ferry/queue/session.h"

namespace BXF {

UnicodeString bxProtocol(u"bx");

namespace {

constexpr unsigned long NEW_QUEUE_DEPTH = 500000;

} // namespace

CCMEBX* CreateBX(UnicodeString sPath, UnicodeString sManager) {
  return new CCMEBXSer(std::move(sPath), std::move(sManager));
}

bool QExists(const UnicodeString& sPath, const UnicodeString& sManager) {
  return CCMEBXSer::QExists(sPath, sManager);
}

bool QStatus(UnicodeString& sOut, const UChar* pPath, const UChar* pManager) {
  return CCMEBXSer::QStatus(sOut, pPath, pManager);
}

bool QCreate(UnicodeString sPath, UnicodeString sManager, bool) {
  CCMEBXSer obQueue(std::move(sPath), std::move(sManager));
  return obQueue.CreateQueue(NEW_QUEUE_DEPTH, false) == 0;
}

} // namespace BXF
