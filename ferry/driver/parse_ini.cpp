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

using Limits = CDistributionConfig::Limits;

constexpr long SKIPS_PER_NOTICE = 10000;
constexpr long FULL_ROUND_WAIT = 10; // milliseconds

// The open queues, each once, and the places of the section that stand for them. A queue that is
// named twice gets its records in one unit of work: in two they would overtake each other.
class COutputs {
public:
  explicit COutputs(const std::vector<UnicodeString>& aNames) {
    for (const UnicodeString& sName : aNames) m_aPlaces.push_back({Open_n(sName)});
  }
  size_t Count_n() const { return m_aPlaces.size(); }
  size_t Queue_n(size_t nPlace) const { return m_aPlaces[nPlace].nQueue; }
  CCMEBX& Queue_rob(size_t nPlace) const { return *m_aQueues[Queue_n(nPlace)]; }
  uint32_t& Sent_rob(size_t nPlace) { return m_aPlaces[nPlace].nSent; }
  std::vector<CCMEBX*> Queues_a() const {
    std::vector<CCMEBX*> aPointers;
    for (const auto& q : m_aQueues) aPointers.push_back(q.get());
    return aPointers;
  }

private:
  struct Place {
    size_t nQueue;
    uint32_t nSent = 0;
  };
  size_t Open_n(const UnicodeString& sName) {
    std::unique_ptr<CCMEBX> q(BXF::CreateBX(sName, UnicodeString()));
    for (size_t n = 0; n < m_aQueues.size(); ++n)
      if (m_aQueues[n]->GetPath() == q->GetPath()) return n;
    q->Open(CCMEBX::QT_ANY);
    m_aQueues.push_back(std::move(q));
    return m_aQueues.size() - 1;
  }

  std::vector<std::unique_ptr<CCMEBX>> m_aQueues;
  std::vector<Place> m_aPlaces;
};

/// One run of a distribution.
class CDistributor {
public:
  CDistributor(const std::string& sSection, UnicodeString sGrep, long nCount, long nPause,
               long nPriority, long nExpire)
      : m_obConfig(sSection), m_sGrep(std::move(sGrep)), m_nCount(nCount), m_nPause(nPause),
        m_nPriority(nPriority), m_nExpire(nExpire), m_obOutputs(m_obConfig.Queues_a()),
        m_obInput(m_obOutputs.Queues_a()), m_obLimits(m_obConfig.Limits_ob()),
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
  void Statistics_v();

  CDistributionConfig m_obConfig;
  const UnicodeString m_sGrep;
  long m_nCount;
  const long m_nPause;
  const long m_nPriority;
  const long m_nExpire;
  COutputs m_obOutputs;
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
    m_nCursor = (m_nCursor + 1) % m_obOutputs.Count_n();
  }
}

void CDistributor::Skip_v() {
  m_obInput.Dropped_v();
  if (++m_nRecords % SKIPS_PER_NOTICE != 1) return;
  WriteNotice_v("Skipped " + std::to_string(m_nRecords) + " records of " +
                std::to_string(m_nSkipCount) + "\n");
}

bool CDistributor::Try_b() {
  CCMEBX& obQueue = m_obOutputs.Queue_rob(m_nCursor);
  if (IsFull_b(obQueue)) {
    if (++m_nFull % m_obOutputs.Count_n() == 0) FullRound_v();
    return false;
  }
  SendRecord_v(obQueue, m_sRecord, m_nPriority, m_nExpire);
  ++m_obOutputs.Sent_rob(m_nCursor);
  m_obInput.Sent_v(m_obOutputs.Queue_n(m_nCursor));
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

void CDistributor::Statistics_v() {
  for (size_t n = 0; n < m_obOutputs.Count_n(); ++n)
    WriteNotice_v("Sent " + std::to_string(m_obOutputs.Sent_rob(n)) + " records to " +
                  UCSS::ucToString(m_obOutputs.Queue_rob(n).GetLabel()) + "\n");
}

} // namespace

void ParseIni(std::string section, UnicodeString grep, long count, long pause, long priority,
              long expire) {
  CDistributor(section, std::move(grep), count, pause, priority, expire).Run_v();
}
