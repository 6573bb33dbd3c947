#include "manager/engine/managers.h"

#include "manager/store/catalog.h"

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

} // namespace bxm
