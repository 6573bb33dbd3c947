#pragma once

#include "manager/store/store.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace bxm {

/// What can be set about a manager.
struct ManagerSettings {
  bool syncFull = false; ///< commits of gets wait for the disk
};

/// The managers that a binding can reach. Each binding's library defines catalog().
class Catalog {
public:
  virtual ~Catalog() = default;

  /// Connects to a manager; an empty name selects the default one. Throws Failure: 2058 unknown,
  /// 2059 cannot be opened, 2035 no permission, 2025 too many connections.
  virtual std::unique_ptr<StoreSession> connect(std::string_view name) = 0;

  /// Throws Failure: 2100 it exists, 2058 not a name, or what the folder or server said.
  virtual void create(const std::string& name, bool makeDefault) = 0;
  /// Throws Failure: 2058 unknown, 2042 somebody is connected.
  virtual void remove(const std::string& name) = 0;
  virtual void setSettings(const std::string& name, const ManagerSettings& settings) = 0;

  struct Entry {
    std::string name;
    bool isDefault = false;
  };
  /// In the order of the names.
  virtual std::vector<Entry> list() = 0;
};

Catalog& catalog();

} // namespace bxm
