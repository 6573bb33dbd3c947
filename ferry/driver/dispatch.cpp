#include "ferry/driver/dispatch.h"

#include "ferry/driver/distributor.h"
#include "ferry/driver/interruption.h"
#include "ferry/driver/options.h"
#include "ferry/driver/record_loops.h"
#include "ferry/driver/standard_output.h"
#include "ferry/driver/standard_streams.h"
#include "ferry/queue/queue.h"
#include "ferry/text/ucss.h"

#include <memory>

namespace {

constexpr int STATUS_NO_QUEUE = 1;
constexpr int STATUS_SIGNAL = 128;
constexpr long STATUS_WAIT = 100; // milliseconds

void WriteOutput_v(const std::string& sText) {
  CStandardOutput obOutput;
  obOutput.Add_v(sText);
  obOutput.Flush_v();
}

void Copy_v(const CFerryOptions& o, CCMEBX* q) {
  q->Open(CCMEBX::QT_ANY);
  if (o.nOperation == CFerryOptions::OP_QUEUE_TO_FILE)
    CFerryEx::ProcessQ2File(q, o.nCount, o.bPeek, o.nPause);
  else if (o.nOperation == CFerryOptions::OP_FILE_TO_QUEUE)
    CFerryEx::ProcessFile2Q(q, o.nCount, o.nPause, o.nPriority, o.nExpire);
  else
    CFerryEx::CleanQueue(q, o.nCount);
}

void Delete_v(const CFerryOptions& o, CCMEBX* q) {
  const int nStatus = q->DeleteQueue();
  if (nStatus == 0)
    WriteOutput_v("Queue " + UCSS::ucsToDCP(o.sQueue) + " deleted.\n");
  else
    WriteNotice_v("Could not delete queue [" + std::to_string(nStatus) + "]\n");
}

void Status_v(const CFerryOptions& o, CCMEBX* q) {
  q->Open(CCMEBX::QT_ANY);
  UnicodeString sText;
  q->PeekMsg(sText, STATUS_WAIT);
  BXF::QStatus(sText, UCSS::getConstUnicodeStringContent(o.sQueue),
               UCSS::getConstUnicodeStringContent(o.sManager));
  WriteOutput_v(UCSS::ucsToDCP(sText));
}

void Create_v(const CFerryOptions& o, bool bExists) {
  const std::string sName = UCSS::ucsToDCP(o.sQueue);
  if (bExists)
    WriteNotice_v("Queue already exists.\n");
  else if (BXF::QCreate(o.sQueue, o.sManager, o.bCreateFlag))
    WriteNotice_v("Queue " + sName + " created.\n");
  else
    WriteNotice_v("Faled to create Queue " + sName + ".\n");
}

void OnQueue_v(const CFerryOptions& o) {
  const std::unique_ptr<CCMEBX> q(BXF::CreateBX(o.sQueue, o.sManager));
  switch (o.nOperation) {
  case CFerryOptions::OP_DELETE: return Delete_v(o, q.get());
  case CFerryOptions::OP_STATUS: return Status_v(o, q.get());
  default: return Copy_v(o, q.get());
  }
}

void Operate_v(const CFerryOptions& o, bool bExists) {
  switch (o.nOperation) {
  case CFerryOptions::OP_DISTRIBUTE:
    return ParseIni(o.sSection, UnicodeString(), o.nCount, o.nPause, o.nPriority, o.nExpire);
  case CFerryOptions::OP_CREATE: return Create_v(o, bExists);
  default: return OnQueue_v(o);
  }
}

int NoQueue_n(const CFerryOptions& o) {
  try {
    WriteNotice_v("Queue " + UCSS::ucsToDCP(o.sQueue) + " does not exist. Use -C to create it.\n");
  } catch (...) {
    WriteNotice_v("BX is not responding!\n");
  }
  return STATUS_NO_QUEUE;
}

bool NeedsQueue_b(const CFerryOptions& o) {
  return o.nOperation != CFerryOptions::OP_DISTRIBUTE && o.nOperation != CFerryOptions::OP_CREATE;
}

} // namespace

int Dispatch_n(const CFerryOptions& o) {
  const bool bUsage = o.nOperation == CFerryOptions::OP_USAGE;
  const bool bNoName = o.sQueue.isEmpty() && o.nOperation != CFerryOptions::OP_DISTRIBUTE;
  if (bNoName && !bUsage) WriteNotice_v("Invalid number of parameters.\n");
  if (bNoName || bUsage) {
    InvalidCommand();
    return 0;
  }
  if (BXF::bxProtocol.isEmpty()) BXF::bxProtocol = UnicodeString(u"bx");
  const bool bExists = BXF::QExists(o.sQueue, o.sManager);
  if (!bExists && NeedsQueue_b(o)) return NoQueue_n(o);
  try {
    Operate_v(o, bExists);
  } catch (const std::string& sText) {
    WriteNotice_v("Exception [" + sText + "]\n");
    return 0;
  }
  const int nSignal = CInterruption::Signal_n();
  return nSignal == 0 ? 0 : STATUS_SIGNAL + nSignal;
}
