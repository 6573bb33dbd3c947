#pragma once

#include "manager/store/store.h"

#include <optional>

namespace bxm {

/// A queue as one object handle has it open.
struct OpenQueue {
  std::shared_ptr<StoreQueue> queue;
  bool input, browse, output;
  std::optional<Position> cursor; ///< the message last browsed
};

} // namespace bxm
