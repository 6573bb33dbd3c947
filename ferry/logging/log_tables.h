#pragma once

#include "ferry/logging/log_writer.h"
#include "ferry/logging/uriuc.h"
#include "ferry/text/ucss.h"

#include <map>
#include <memory>
#include <utility>
#include <vector>

/// The writers of one configuration and the routes to them.
///
/// Built by one thread, then published and never changed again. Whoever routes a message holds a
/// reference, so that a writer which reloads is not deleted under its own feet: the writers are
/// stopped and deleted by whoever lets go last.
struct CLogTables {
  using Routes = std::map<unsigned, std::vector<size_t>>; // filter mask to writer numbers

  CLogTables() = default;
  ~CLogTables();
  CLogTables(const CLogTables&) = delete;
  CLogTables& operator=(const CLogTables&) = delete;

  /// The tables without writers.
  static std::shared_ptr<const CLogTables> None_pob();

  void AddWriter_v(const URIUC& obDestination, std::unique_ptr<CLogWriter> pobWriter);
  /// Routes a category (empty: all of them) to the writer added last.
  void AddRoute_v(const UnicodeString& sCategory, unsigned nMask);
  /// Each writer that wants the message, once, in the order of routing.
  std::vector<CLogWriter*> Select_ob(const UnicodeString& sCategory, unsigned nSeverity) const;

  std::vector<std::pair<URIUC, std::unique_ptr<CLogWriter>>> m_obWriters;
  Routes m_obAllRoutes;
  std::map<UnicodeString, Routes> m_obCategoryRoutes;
  bool m_bStarted = false; // writers that were never started are not stopped
};
