#include "ferry/driver/record.h"

#include "ferry/errors/exception.h"

namespace {

const UnicodeString LABEL(u"Ferry Message");

}

bool Passes_b(const UnicodeString& sRecord, const UnicodeString& sGrep) {
  return sGrep.isEmpty() || (!sGrep.isBogus() && sRecord.indexOf(sGrep) >= 0);
}

void SendRecord_v(CCMEBX& obQueue, const UnicodeString& sRecord, long nPriority, long nExpire) {
  if (obQueue.SendMsg(sRecord, static_cast<int>(nPriority), nExpire, LABEL) == 0) return;
  const UnicodeString sText = UnicodeString(u"Record not sent to queue ") + obQueue.GetPath();
  throw VRK_Exception::genericError("", sText, 0, VRK_CRITICAL_ERROR);
}
