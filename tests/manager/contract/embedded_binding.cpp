#include "tests/manager/contract/binding.h"
#include "tests/support/process.h"

#include <cstdlib>
#include <stdexcept>

namespace contract {

namespace {

class EmbeddedHome : public Home {
public:
  EmbeddedHome() { ::setenv("BXM_HOME", m_folder.path().c_str(), 1); }

  void createManager(const std::string& name) override {
    run({support::binDir() + "/bxadm", "manager", "create", name});
  }
  void switchCommandServer(bool runs) override {
    run({support::binDir() + (runs ? "/strbxcsv" : "/endbxcsv")});
  }
  void breakManager(const std::string& name) override {
    support::writeFile(m_folder / (name + "/manager"), std::string(100, '?'));
  }

private:
  static void run(std::vector<std::string> program) {
    const auto result = support::Process(std::move(program)).run();
    if (result.status != 0) throw std::runtime_error(result.err);
  }

  support::TempFolder m_folder;
};

} // namespace

Binding embeddedBinding() {
  return {"embedded", support::libDir() + "/libbxm_r.so",
          [] { return std::make_unique<EmbeddedHome>(); }};
}

} // namespace contract
