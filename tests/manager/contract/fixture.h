#pragma once

#include "tests/manager/contract/binding.h"
#include "tests/manager/contract/vocabulary.h"
#include "tests/manager/faults/peer.h"

#include <csignal>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace contract {

/// Another process that works on the same managers, by the same library.
class Other : public faults::Peer {
public:
  explicit Other(const Binding& binding)
      : Peer(std::getenv("BXM_HOME"), {{"LD_PRELOAD", binding.client}}) {}
  void kill() {
    signal(SIGKILL);
    waitForDeath();
  }
};

/// An empty home, and a connection to its default manager where a scenario begins.
class Contract : public testing::TestWithParam<Binding> {
protected:
  Contract() : api(apiOf(GetParam())), home(GetParam().makeHome()) {}

  Connection connect(const std::string& manager = "") const { return Connection(api, manager); }
  /// One that is connected to the default manager.
  std::unique_ptr<Other> other() const {
    auto made = std::make_unique<Other>(GetParam());
    made->words("connect");
    return made;
  }

  const Api& api;
  const std::unique_ptr<Home> home;

private:
  /// Loaded once: a library stays in a process that has used it.
  static const Api& apiOf(const Binding& binding) {
    static std::map<std::string, Api> loaded;
    return loaded.try_emplace(binding.client, binding.client).first->second;
  }
};

/// The same with a queue Q, open for everything.
class OnQueue : public Contract {
protected:
  OnQueue() {
    EXPECT_EQ(mine.codes, kOk);
    EXPECT_EQ(mine.createQueue("Q"), kOk);
    q = mine.open("Q");
    EXPECT_EQ(q.codes, kOk);
  }

  Connection mine = connect();
  Queue q;
};

} // namespace contract

/// Registers a suite of scenarios for every binding that has been built.
#define FOR_EVERY_BINDING(suite)                                                                   \
  INSTANTIATE_TEST_SUITE_P(Bindings, suite,                                                       \
                           testing::Values(contract::embeddedBinding(),                            \
                                           contract::postgresBinding()),                           \
                           testing::PrintToStringParamName())
