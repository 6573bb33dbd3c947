#pragma once

#include "manager/store/catalog.h"

#include <string>
#include <vector>

/// What the operator's programs do with managers as a whole. Everything throws a Failure whose text
/// is made to be shown.
namespace bxm {

struct ManagerInfo {
  std::string name;
  bool isDefault = false;
};

void createManager(const std::string& name, bool makeDefault);
void deleteManager(const std::string& name);
std::vector<ManagerInfo> listManagers();
/// An empty name is the default manager.
void switchCommandServer(const std::string& name, bool runs);
/// full: commits of gets wait for the disk, too.
void setManagerSync(const std::string& name, bool full);

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

} // namespace bxm
