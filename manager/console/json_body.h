#pragma once

#include "manager/console/http.h"
#include "manager/view/json.h"

namespace bxm::console {

/// A request's body, an object of a few plain values; whatever else it is costs no memory. Throws
/// Problem 400.
Json bodyOf(const Request& request);

} // namespace bxm::console
