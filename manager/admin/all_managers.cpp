#include "bx/bx.h"
#include "manager/base/failure.h"
#include "manager/store/catalog.h"

#include <algorithm>

namespace bxm {

namespace {

/// For the operator's programs: the managers in the folder of BXM_HOME, and those in databases.
class AllManagers : public Catalog {
public:
  std::unique_ptr<StoreSession> connect(std::string_view name) override {
    return of(name).connect(name);
  }
  void create(const std::string& name, bool makeDefault, const std::string& place) override {
    if (place.empty() && isInDatabase(name))
      throw Failure(BXRC_OBJECT_EXISTS, "there is a queue manager " + name + " already");
    (place.empty() ? embeddedCatalog() : postgresCatalog()).create(name, makeDefault, place);
  }
  void remove(const std::string& name) override { of(name).remove(name); }
  void setDefault(const std::string& name) override { of(name).setDefault(name); }
  void setSettings(const std::string& name, const ManagerSettings& settings) override {
    of(name).setSettings(name, settings);
  }
  void grant(const std::string& name, const std::string& role, const std::string& may) override {
    of(name).grant(name, role, may);
  }
  std::vector<Entry> list() override {
    std::vector<Entry> all = embeddedCatalog().list();
    for (const Entry& entry : postgresCatalog().list()) all.push_back(entry);
    return all;
  }
  Findings check(const std::string& name) override { return of(name).check(name); }
  Repair repair(const std::string& name) override { return of(name).repair(name); }
  std::vector<std::string> backup(const std::string& name, const std::string& target) override {
    return of(name).backup(name, target);
  }
  void restore(const std::string& source, const std::string& name) override {
    embeddedCatalog().restore(source, name);
  }

private:
  static bool isInDatabase(std::string_view name) {
    const std::vector<Entry> entries = postgresCatalog().list();
    return std::any_of(entries.begin(), entries.end(), [name](const Entry& entry) {
      return name.empty() ? entry.isDefault : entry.name == name;
    });
  }
  /// Without a name the embedded default comes first, as it does for the tool.
  static Catalog& of(std::string_view name) {
    if (name.empty() && !embeddedCatalog().list().empty()) return embeddedCatalog();
    return isInDatabase(name) ? postgresCatalog() : embeddedCatalog();
  }
};

} // namespace

Catalog& catalog() {
  static AllManagers all;
  return all;
}

} // namespace bxm
