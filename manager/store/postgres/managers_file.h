#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace bxm {

/// bxclient.ini: where the managers are that live in databases.
///
///   [managers]
///   default = ORDERS
///   ORDERS = postgresql://db1,db2/queues
///
/// Read from where BXM_CLIENT_INI says, else from the folder of BXM_HOME, else from /etc/bxm; users
/// who change what is there get a copy in their own folder.
struct ManagersFile {
  std::string path; ///< of the file that was read
  std::string defaultName;
  std::map<std::string, std::string> places; ///< URIs by names

  /// Without a file there are no managers. Throws Failure 2059 when it cannot be read or
  /// understood.
  static ManagersFile read();
  /// Without a name: whether one is the default.
  bool has(std::string_view name) const;
  /// Adds a manager, leaving all other lines as they are; with the mark as the default one.
  void add(const std::string& name, const std::string& place, bool makeDefault) const;
  void setDefault(const std::string& name) const; ///< an empty name: none is
  /// Takes it out, and its mark.
  void remove(const std::string& name) const;

private:
  void insert(const std::vector<std::string>& settings, bool withDefault) const;
};

} // namespace bxm
