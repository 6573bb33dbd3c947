#include "manager/engine/managers.h"

namespace bxm {

void createManager(const std::string& name, bool makeDefault) {
  catalog().create(name, makeDefault);
}

void deleteManager(const std::string& name) { catalog().remove(name); }

std::vector<ManagerInfo> listManagers() {
  std::vector<ManagerInfo> managers;
  for (const Catalog::Entry& entry : catalog().list())
    managers.push_back({entry.name, entry.isDefault});
  return managers;
}

void switchCommandServer(const std::string& name, bool runs) {
  catalog().connect(name)->setCommandServer(runs);
}

void setManagerSync(const std::string& name, bool full) { catalog().setSettings(name, {full}); }

ManagerFindings checkManager(const std::string& name) { return catalog().check(name); }

ManagerRepair repairManager(const std::string& name) { return catalog().repair(name); }

std::vector<std::string> backUpManager(const std::string& name, const std::string& target) {
  return catalog().backup(name, target);
}

void restoreManager(const std::string& source, const std::string& name) {
  catalog().restore(source, name);
}

} // namespace bxm
