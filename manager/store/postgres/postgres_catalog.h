#pragma once

#include "manager/store/catalog.h"

namespace bxm {

/// The managers in databases. Thread-safe.
class PostgresCatalog : public Catalog {
public:
  std::unique_ptr<StoreSession> connect(std::string_view name) override;
  /// place: libpq's URI, without a password.
  void create(const std::string& name, bool makeDefault, const std::string& place) override;
  void remove(const std::string& name) override;
  bool has(std::string_view name) override;
  void setDefault(const std::string& name) override;
  void setSettings(const std::string& name, const ManagerSettings& settings) override;
  void grant(const std::string& name, const std::string& role, const std::string& may) override;
  std::vector<Entry> list() override;
  /// The database's own tools do these: Failure 2045.
  Findings check(const std::string& name) override;
  Repair repair(const std::string& name) override;
  std::vector<std::string> backup(const std::string& name, const std::string& target) override;
  void restore(const std::string& source, const std::string& name) override;
};

} // namespace bxm
