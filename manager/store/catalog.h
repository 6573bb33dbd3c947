#pragma once

#include "manager/store/store.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace bxm {

/// The managers that a binding can reach.
class Catalog {
public:
  virtual ~Catalog() = default;

  /// Connects to a manager; an empty name selects the default one. Throws Failure: 2058 unknown,
  /// 2059 cannot be opened, 2035 no permission, 2025 too many connections.
  virtual std::unique_ptr<StoreSession> connect(std::string_view name) = 0;

  /// place: where it is to live, as far as the binding offers a choice; empty where it does not.
  /// Throws Failure: 2100 it exists, 2058 not a name, or what the folder or server said.
  virtual void create(const std::string& name, bool makeDefault, const std::string& place) = 0;
  /// Throws Failure: 2058 unknown, 2042 somebody is connected.
  virtual void remove(const std::string& name) = 0;
  /// Whether there is one of this name; without a name: a default one.
  virtual bool has(std::string_view name) = 0;
  /// Marks it the one that is meant where none is named; an empty name: none is. Throws Failure 2058.
  virtual void setDefault(const std::string& name) = 0;
  virtual void setSettings(const std::string& name, const ManagerSettings& settings) = 0;

  /// Lets a role of the database put, get, browse or admin; none takes everything back. Throws
  /// Failure: 2058, 2045 where there are no roles.
  virtual void grant(const std::string& name, const std::string& role, const std::string& may) = 0;

  struct Entry {
    std::string name;
    bool isDefault = false;
    std::string place{}; ///< its folder, or the URI of its database
  };
  /// In the order of the names.
  virtual std::vector<Entry> list() = 0;

  struct Findings {
    std::vector<std::string> damages; ///< in words, with file and place
    std::uint64_t logFiles = 0;
    std::uint64_t messages = 0; ///< that are whole
    std::uint64_t queues = 0;
  };
  /// Looks at all that a manager keeps, also while it is in use, and changes nothing. An empty name
  /// is the default manager. Throws Failure: 2058 unknown, 2059 not a store of this format, 2042 in
  /// use by this program itself.
  virtual Findings check(const std::string& name) = 0;

  struct Repair {
    std::vector<std::string> changes; ///< of what is not messages, in words
    std::string setAside;             ///< the file with all that could not be kept; empty: nothing
    std::uint64_t setAsideCount = 0;
    std::uint64_t messages = 0; ///< that were kept
  };
  /// Makes the manager such that check finds nothing; all of it or nothing. Throws Failure: 2058,
  /// 2042 somebody is connected, 2056.
  virtual Repair repair(const std::string& name) = 0;

  /// Copies a manager, also while it is in use, into a folder that must not exist. The copy has
  /// every unit of work that was committed when this began, and of those since whole ones. Returns
  /// what is damaged in the copy, in words. Throws Failure: 2058, 2100 the folder exists, 2056.
  virtual std::vector<std::string> backup(const std::string& name, const std::string& target) = 0;
  /// Makes a manager of what backup made. Throws Failure: 2100 the name exists, 2059 not a backup,
  /// 2042 the source is a manager in use.
  virtual void restore(const std::string& source, const std::string& name) = 0;
};

/// The managers in the folder of BXM_HOME.
Catalog& embeddedCatalog();
/// Those in databases, which bxclient.ini names.
Catalog& postgresCatalog();

/// What the calls of a program work on: one of these, or both.
Catalog& catalog();

} // namespace bxm
