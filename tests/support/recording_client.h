#pragma once

#include "bx/bx.h"

#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace support {

/// What a client library that only pretends to know a manager was asked, and what it is to answer.
///
/// The library and the test share one of these: ClientScript* clientScript(). It lives as long as
/// the library is loaded. What nobody scripts succeeds; a get finds the scripted messages.
struct ClientScript {
  struct Codes {
    BXLONG completion = BXCC_OK;
    BXLONG reason = BXRC_NONE;
  };
  using Item = std::pair<BXHBAG, BXLONG>; ///< bag and selector

  /// The calls in order, "NAME argument argument ...".
  std::vector<std::string> calls;
  /// What the next calls of an entry point answer.
  std::map<std::string, std::deque<Codes>> answers;
  std::deque<std::string> messages;
  /// Items that answers hold. Nested bags are numbered from 100.
  std::map<Item, BXLONG> integers;
  std::map<Item, std::string> strings;
  BXLONG nestedBags = 0;

  // What the last call of its kind came with.
  BXMD putDescriptor = BXMD_DEFAULT;
  BXMD getDescriptor = BXMD_DEFAULT;
  BXPMO putOptions = BXPMO_DEFAULT;
  BXGMO getOptions = BXGMO_DEFAULT;
  BXCNO connectOptions = BXCNO_DEFAULT;
  std::string putData;

  BXHBAG lastBag = 0;
  int openBags = 0;

  void answer(const std::string& name, BXLONG completion, BXLONG reason) {
    answers[name].push_back({completion, reason});
  }
};

constexpr BXHBAG FIRST_NESTED_BAG = 100;

} // namespace support

extern "C" BXENTRY support::ClientScript* clientScript();
