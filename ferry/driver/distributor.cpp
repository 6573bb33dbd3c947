#include "ferry/driver/distributor.h"

#include "ferry/driver/distribution_config.h"
#include "ferry/driver/interruption.h"
#include "ferry/driver/record_input.h"
#include "ferry/driver/standard_streams.h"
#include "ferry/queue/queue.h"
#include "ferry/text/ucss.h"

#include <algorithm>
#include <memory>

namespace {

using Limits = CDistributionConfig::Limits;

constexpr long SKIPS_PER_NOTICE = 10000;
constexpr long FULL_ROUND_WAIT = 10; // milliseconds

// A place of the section. A queue that is named twice gets all its records through the first of its
// places: in two units of work they would overtake each other.
struct Output {
  std::unique_ptr<CCMEBX> pobQueue;
  size_t nThrough; // the place
  uint32_t nSent = 0;
};
using Outputs = std::vector<Output>;

Outputs OpenOutputs_a(const std::vector<UnicodeString>& aNames) {
  Outputs aOutputs;
  for (const UnicodeString& sName : aNames) {
    std::unique_ptr<CCMEBX> q(BXF::CreateBX(sName, UnicodeString()));
    q->Open(CCMEBX::QT_ANY);
    const auto obSame = std::ranges::find_if(
        aOutputs, [&q](const Output& ob) { return ob.pobQueue->GetPath() == q->GetPath(); });
    const auto nThrough = static_cast<size_t>(obSame - aOutputs.begin());
    aOutputs.push_back({std::move(q), nThrough});
  }
  return aOutputs;
}

std::vector<CCMEBX*> Queues_a(const Outputs& aOutputs) {
  std::vector<CCMEBX*> aQueues;
  for (const Output& obOutput : aOutputs) aQueues.push_back(obOutput.pobQueue.get());
  return aQueues;
}

// One run of a distribution.
class CDistributor {
public:
  CDistributor(const std::string& sSection, UnicodeString sGrep, long nCount, long nPause,
               long nPriority, long nExpire)
      : m_obConfig(sSection), m_sGrep(std::move(sGrep)), m_nCount(nCount), m_nPause(nPause),
        m_nPriority(nPriority), m_nExpire(nExpire),
        m_aOutputs(OpenOutputs_a(m_obConfig.Queues_a())), m_obInput(Queues_a(m_aOutputs)),
        m_obLimits(m_obConfig.Limits_ob()), m_nSkipCount(m_obConfig.SkipCount_n()) {}

  void Run_v();

private:
  void Lines_v();
  void Skip_v();
  void Record_v(std::string_view sLine);
  bool Try_b();
  bool IsFull_b(const CCMEBX& obQueue) const;
  void FullRound_v();
  void SaturationPause_v();
  void Statistics_v() const;

  CDistributionConfig m_obConfig;
  const UnicodeString m_sGrep;
  long m_nCount;
  const long m_nPause;
  const long m_nPriority;
  const long m_nExpire;
  Outputs m_aOutputs;
  const CInterruption m_obInterruption;
  CRecordInput m_obInput;
  Limits m_obLimits;
  const long m_nSkipCount;
  UnicodeString m_sRecord;
  size_t m_nCursor = 0; // the place to try next
  long m_nRecords = 0;  // records skipped and attempts made
  uint32_t m_nFull = 0; // full queues met since the last record was placed
};

void CDistributor::Run_v() {
  m_obInput.Batch_rob().Run_v([this] { Lines_v(); });
  WriteNotice_v("Final stats.\n");
  Statistics_v();
}

void CDistributor::Lines_v() {
  std::string_view sLine;
  while (m_obInput.Read_b(sLine)) {
    if (m_nRecords < m_nSkipCount) {
      Skip_v();
      continue;
    }
    Record_v(sLine);
    if (m_nCount == 0) break;
  }
}

void CDistributor::Record_v(std::string_view sLine) {
  UCSS::dcpToUCS(m_sRecord, sLine);
  if (!Passes_b(m_sRecord, m_sGrep)) return m_obInput.Dropped_v();
  bool bSent = false;
  while (!bSent && CInterruption::Signal_n() == 0) {
    bSent = Try_b();
    if (m_obLimits.nFullCountMax != Limits::NONE && m_nFull >= m_obLimits.nFullCountMax)
      SaturationPause_v();
    if (m_nPause > 0) m_obInput.Batch_rob().Commit_v();
    rwSleep(m_nPause);
    --m_nCount;
    ++m_nRecords;
    m_nCursor = (m_nCursor + 1) % m_aOutputs.size();
  }
}

void CDistributor::Skip_v() {
  m_obInput.Dropped_v();
  if (++m_nRecords % SKIPS_PER_NOTICE != 1) return;
  WriteNotice_v("Skipped " + std::to_string(m_nRecords) + " records of " +
                std::to_string(m_nSkipCount) + "\n");
}

bool CDistributor::Try_b() {
  const size_t nThrough = m_aOutputs[m_nCursor].nThrough;
  CCMEBX& obQueue = *m_aOutputs[nThrough].pobQueue;
  if (IsFull_b(obQueue)) {
    if (++m_nFull % m_aOutputs.size() == 0) FullRound_v();
    return false;
  }
  SendRecord_v(obQueue, m_sRecord, m_nPriority, m_nExpire);
  ++m_aOutputs[m_nCursor].nSent;
  m_obInput.Sent_v(nThrough);
  m_nFull = 0;
  return true;
}

// Without a limit the depth is not asked for: that would be an administration command a record.
bool CDistributor::IsFull_b(const CCMEBX& obQueue) const {
  const uint32_t nMax = m_obLimits.nMessageCountMax;
  return nMax != Limits::NONE && static_cast<uint32_t>(obQueue.GetMessageCount()) >= nMax;
}

// A consumer can only relieve the queues of what is committed, and when no pause is set for them,
// asking them again and again at full speed would not make it faster.
void CDistributor::FullRound_v() {
  m_obInput.Batch_rob().Commit_v();
  const bool bPauses = m_obLimits.nFullCountMax != Limits::NONE && m_obLimits.nFullPause > 0;
  if (!bPauses && m_nPause <= 0) rwSleep(FULL_ROUND_WAIT);
}

void CDistributor::SaturationPause_v() {
  m_obInput.Batch_rob().Commit_v();
  WriteNotice_v("Pausing " + std::to_string(m_obLimits.nFullPause) +
                "ms during message saturation.\n");
  m_obLimits = m_obConfig.Reread_ob();
  Statistics_v();
  rwSleep(m_obLimits.nFullPause);
}

void CDistributor::Statistics_v() const {
  for (const Output& obOutput : m_aOutputs)
    WriteNotice_v("Sent " + std::to_string(obOutput.nSent) + " records to " +
                  UCSS::ucToString(obOutput.pobQueue->GetLabel()) + "\n");
}

} // namespace

void ParseIni(std::string section, UnicodeString grep, long count, long pause, long priority,
              long expire) {
  CDistributor(section, std::move(grep), count, pause, priority, expire).Run_v();
}
