#pragma once

#include "bx/bx.h"
#include "manager/store/catalog.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// What the operator's programs do with managers and their queues. Where a manager may be named an
/// empty name is the default one. Everything throws a Failure whose text is made to be shown.
namespace bxm {

using ManagerInfo = Catalog::Entry;

/// place: postgresql://... for one in a database, empty for one in the folder of BXM_HOME.
void createManager(const std::string& name, bool makeDefault, const std::string& place);
void deleteManager(const std::string& name);
std::vector<ManagerInfo> listManagers();
/// Throws a Failure 2058 when there is none of that name.
ManagerInfo findManager(const std::string& name);
void setDefaultManager(const std::string& name);
void switchCommandServer(const std::string& name, bool runs);
bool commandServerRuns(const std::string& name);
/// Of a manager in a database: lets a role put, get, browse or admin, or none of these any more.
void grantAccess(const std::string& name, const std::string& role, const std::string& may);
/// full: commits of gets wait for the disk, too.
void setManagerSync(const std::string& name, bool full);
ManagerSettings managerSettings(const std::string& name);

using ManagerFindings = Catalog::Findings;
using ManagerRepair = Catalog::Repair;
/// Changes nothing, also while the manager is in use.
ManagerFindings checkManager(const std::string& name);
/// Makes a manager that nobody uses such that a check finds nothing.
ManagerRepair repairManager(const std::string& name);
/// Copies a manager, also while it is in use, into a folder that must not exist; returns what is
/// damaged in the copy.
std::vector<std::string> backUpManager(const std::string& name, const std::string& target);
/// Makes a manager of such a copy.
void restoreManager(const std::string& source, const std::string& name);

struct QueueInfo {
  QueueDefinition definition;
  std::uint64_t depth = 0;
};

/// What is to be set about a queue; the rest stays as it is, or as a new queue has it.
struct QueueSettings {
  std::optional<BXLONG> maxDepth, maxMessageLength, defaultPriority;
  std::optional<bool> persistent, putInhibited, getInhibited;

  bool operator==(const QueueSettings&) const = default;
};

void createLocalQueue(const std::string& manager, const std::string& name,
                      const QueueSettings& settings);
void alterLocalQueue(const std::string& manager, const std::string& name,
                     const QueueSettings& settings);
/// Deletes a queue with all that is on it.
void deleteLocalQueue(const std::string& manager, const std::string& name);
QueueInfo findLocalQueue(const std::string& manager, const std::string& name);
/// In the order of the names.
std::vector<QueueInfo> listLocalQueues(const std::string& manager);

} // namespace bxm
