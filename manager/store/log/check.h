#pragma once

#include "manager/store/catalog.h"
#include "manager/store/log/log_store.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace bxm {

/// What a look at the files of a manager found.
struct Checked {
  Catalog::Findings findings;
  ManagerFile manager;         ///< what is left of it
  bool managerDamaged = false; ///< its store id is the log files'
  bool indexDamaged = false;
  std::map<std::uint32_t, QueueDefinition> queues; ///< by id, those that are readable
  std::map<std::uint32_t, std::uint64_t> messages; ///< whole ones that are there, by queue id
};

/// Looks at a manager's files, which others may be changing. Throws Failure 2059 when it is no
/// store of this format.
Checked checkFiles(const Folder& folder);

/// Compares the index with the logs. Adds what it finds.
void checkIndex(LogStore& store, Checked& checked);

} // namespace bxm
