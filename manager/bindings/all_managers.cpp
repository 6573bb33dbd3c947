#include "manager/bindings/all_managers.h"

#include "bx/bx.h"
#include "manager/base/failure.h"
#include "manager/store/postgres/managers_file.h"

namespace bxm {

namespace {
[[noreturn]] void failAsKnown(const std::string& name) {
  throw Failure(BXRC_OBJECT_EXISTS, "there is a queue manager " + name + " already");
}
} // namespace

bool AllManagers::isInDatabase(std::string_view name) {
  return !m_embedded().has(name) && ManagersFile::read().has(name);
}

/// Where nobody has it, the folder's: the first manager is made there.
Catalog& AllManagers::of(std::string_view name) {
  return isInDatabase(name) ? m_databases() : m_embedded();
}

std::unique_ptr<StoreSession> AllManagers::connect(std::string_view name) {
  return of(name).connect(name);
}

void AllManagers::create(const std::string& name, bool makeDefault, const std::string& place) {
  if (place.empty() ? isInDatabase(name) : m_embedded().has(name)) failAsKnown(name);
  (place.empty() ? m_embedded() : m_databases()).create(name, makeDefault, place);
  if (!place.empty() && makeDefault) m_embedded().setDefault("");
}

void AllManagers::remove(const std::string& name) { of(name).remove(name); }

bool AllManagers::has(std::string_view name) {
  return m_embedded().has(name) || isInDatabase(name);
}

void AllManagers::setDefault(const std::string& name) {
  of(name).setDefault(name);
  if (isInDatabase(name)) m_embedded().setDefault("");
}

void AllManagers::setSettings(const std::string& name, const ManagerSettings& settings) {
  of(name).setSettings(name, settings);
}

void AllManagers::grant(const std::string& name, const std::string& role, const std::string& may) {
  of(name).grant(name, role, may);
}

std::vector<Catalog::Entry> AllManagers::list() {
  Catalog& embedded = m_embedded();
  std::vector<Entry> all = embedded.list();
  const ManagersFile file = ManagersFile::read();
  for (const auto& [name, place] : file.places)
    if (!embedded.has(name))
      all.push_back({name, name == file.defaultName && !embedded.has(""), place});
  return all;
}

Catalog::Findings AllManagers::check(const std::string& name) { return of(name).check(name); }

Catalog::Repair AllManagers::repair(const std::string& name) { return of(name).repair(name); }

std::vector<std::string> AllManagers::backup(const std::string& name, const std::string& target) {
  return of(name).backup(name, target);
}

void AllManagers::restore(const std::string& source, const std::string& name) {
  if (isInDatabase(name)) failAsKnown(name);
  m_embedded().restore(source, name);
}

} // namespace bxm
