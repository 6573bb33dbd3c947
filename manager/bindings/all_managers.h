#pragma once

#include "manager/store/catalog.h"

namespace bxm {

/// Those in the folder of BXM_HOME and those in databases, as one. Where a name is in both the
/// folder comes first, and so does its default manager; a default in a database takes that one's
/// mark away.
class AllManagers : public Catalog {
public:
  using Source = Catalog& (*)();
  /// embedded: called each time, since BXM_HOME may change. databases: called when something is
  /// asked of a manager there; who they are is read from bxclient.ini.
  AllManagers(Source embedded, Source databases) : m_embedded(embedded), m_databases(databases) {}

  std::unique_ptr<StoreSession> connect(std::string_view name) override;
  void create(const std::string& name, bool makeDefault, const std::string& place) override;
  void remove(const std::string& name) override;
  bool has(std::string_view name) override;
  void setDefault(const std::string& name) override;
  void setSettings(const std::string& name, const ManagerSettings& settings) override;
  void grant(const std::string& name, const std::string& role, const std::string& may) override;
  std::vector<Entry> list() override;
  Findings check(const std::string& name) override;
  Repair repair(const std::string& name) override;
  std::vector<std::string> backup(const std::string& name, const std::string& target) override;
  void restore(const std::string& source, const std::string& name) override;

private:
  bool isInDatabase(std::string_view name);
  Catalog& of(std::string_view name);

  const Source m_embedded, m_databases;
};

} // namespace bxm
