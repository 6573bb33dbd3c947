#pragma once

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

} // namespace bxm
