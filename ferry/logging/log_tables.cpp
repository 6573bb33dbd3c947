#include "ferry/logging/log_tables.h"

#include <algorithm>

namespace {

void SelectFrom_v(const CLogTables::Routes& obRoutes, unsigned nSeverity,
                  std::vector<size_t>& obSelected) {
  for (const auto& [nMask, obNumbers] : obRoutes) {
    if ((nMask & nSeverity) != nSeverity) continue;
    for (size_t n : obNumbers)
      if (std::find(obSelected.begin(), obSelected.end(), n) == obSelected.end())
        obSelected.push_back(n);
  }
}

} // namespace

CLogTables::~CLogTables() {
  if (!m_bStarted) return;
  for (const auto& [obDestination, pobWriter] : m_obWriters) {
    try {
      pobWriter->Stop_v();
    } catch (...) {
      // It is on its way out, and the others have to be stopped too.
    }
  }
}

std::shared_ptr<const CLogTables> CLogTables::None_pob() {
  static const auto pobNone = std::make_shared<const CLogTables>();
  return pobNone;
}

void CLogTables::AddWriter_v(const URIUC& obDestination, std::unique_ptr<CLogWriter> pobWriter) {
  m_obWriters.emplace_back(obDestination, std::move(pobWriter));
}

void CLogTables::AddRoute_v(const UnicodeString& sCategory, unsigned nMask) {
  Routes& obRoutes = sCategory.isEmpty() ? m_obAllRoutes : m_obCategoryRoutes[sCategory];
  obRoutes[nMask].push_back(m_obWriters.size() - 1);
}

std::vector<CLogWriter*> CLogTables::Select_ob(const UnicodeString& sCategory,
                                               unsigned nSeverity) const {
  std::vector<size_t> obSelected;
  SelectFrom_v(m_obAllRoutes, nSeverity, obSelected);
  const auto it = m_obCategoryRoutes.find(sCategory);
  if (it != m_obCategoryRoutes.end()) SelectFrom_v(it->second, nSeverity, obSelected);
  std::vector<CLogWriter*> obWriters;
  for (size_t n : obSelected) obWriters.push_back(m_obWriters[n].second.get());
  return obWriters;
}
