#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>

namespace contract {

/// A fresh, empty place for managers. While it exists this process and those that it starts find
/// it by themselves; it goes with all that is in it.
class Home {
public:
  virtual ~Home() = default;
  virtual void createManager(const std::string& name) = 0;
  /// Starts or stops the command server of the default manager.
  virtual void switchCommandServer(bool runs) = 0;
  /// Leaves a manager known, but in a state in which nobody can open it.
  virtual void breakManager(const std::string& name) = 0;
};

/// One form of the client library.
struct Binding {
  std::string name;
  std::string client;
  std::function<std::unique_ptr<Home>()> makeHome;
};
inline std::ostream& operator<<(std::ostream& out, const Binding& binding) {
  return out << binding.name;
}

Binding embeddedBinding();
Binding postgresBinding();

} // namespace contract
