#include "ferry/driver/parse_ini.h"

#include "ferry/driver/distribution_config.h"
#include "ferry/driver/interruption.h"
#include "ferry/driver/record.h"
#include "ferry/driver/record_input.h"
#include "ferry/driver/standard_streams.h"
#include "ferry/queue/factory.h"
#include "ferry/text/ucss.h"

#include <memory>

namespace {

using Queues = std::vector<std::unique_ptr<CCMEBX>>;
using Limits = CDistributionConfig::Limits;

constexpr long SKIPS_PER_NOTICE = 10000;
constexpr long FULL_ROUND_WAIT = 10; // milliseconds

Queues OpenQueues_a(const std::vector<UnicodeString>& aNames) {
  Queues aQueues;
  for (const UnicodeString& sName : aNames) {
    aQueues.emplace_back(BXF::CreateBX(sName, UnicodeString()));
    aQueues.back()->Open(CCMEBX::QT_ANY);
  }
  return aQueues;
}

std::vector<CCMEBX*> Pointers_a(const Queues& aQueues) {
  std::vector<CCMEBX*> aPointers;
  for (const auto& q : aQueues) aPointers.push_back(q.get());
  return aPointers;
}

/// One run of a distribution.
class CDistributor {
public:
  CDistributor(const std::string& sSection, UnicodeString sGrep, long nCount, long nPause,
               long nPriority, long nExpire)
      : m_obConfig(sSection), m_sGrep(std::move(sGrep)), m_nCount(nCount), m_nPause(nPause),
        m_nPriority(nPriority), m_nExpire(nExpire), m_aQueues(OpenQueues_a(m_obConfig.Queues_a())),
        m_obInput(Pointers_a(m_aQueues)), m_obLimits(m_obConfig.Limits_ob()),
        m_nSkipCount(m_obConfig.SkipCount_n()) {}

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
  const Queues m_aQueues;
  const CInterruption m_obInterruption;
  CRecordInput m_obInput;
  Limits m_obLimits;
  const long m_nSkipCount;
  UnicodeString m_sRecord;
  size_t m_nCursor = 0; // the queue to try next
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
    m_nCursor = (m_nCursor + 1) % m_aQueues.size();
  }
}

void CDistributor::Skip_v() {
  m_obInput.Dropped_v();
  if (++m_nRecords % SKIPS_PER_NOTICE != 1) return;
  WriteNotice_v("Skipped " + std::to_string(m_nRecords) + " records of " +
                std::to_string(m_nSkipCount) + "\n");
}

bool CDistributor::Try_b() {
  CCMEBX& obQueue = *m_aQueues[m_nCursor];
  if (IsFull_b(obQueue)) {
    if (++m_nFull % m_aQueues.size() == 0) FullRound_v();
    return false;
  }
  SendRecord_v(obQueue, m_sRecord, m_nPriority, m_nExpire);
  m_obInput.Sent_v(m_nCursor);
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
  if (m_obLimits.nFullCountMax == Limits::NONE && m_nPause <= 0) rwSleep(FULL_ROUND_WAIT);
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
  for (const auto& q : m_aQueues)
    WriteNotice_v("Sent " + std::to_string(static_cast<uint32_t>(q->GetSentCount())) +
                  " records to " + UCSS::ucToString(q->GetLabel()) + "\n");
}

} // namespace

void ParseIni(std::string section, UnicodeString grep, long count, long pause, long priority,
              long expire) {
  CDistributor(section, std::move(grep), count, pause, priority, expire).Run_v();
}
