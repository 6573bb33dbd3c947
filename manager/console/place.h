#pragma once

#include "manager/console/observer.h"
#include "manager/console/problem.h"
#include "manager/store/store.h"

#include <memory>

namespace bxm::console {

/// The manager and queue that a request is about.
struct Place {
  std::string manager, queue;
};

/// Connects to a manager that the console shows. One that was just found unreachable is not tried
/// again, since that may take long. Throws Problem 404, 503, or the Failure of the connect.
std::unique_ptr<StoreSession> connectTo(const Observer& observer, const std::string& manager);
/// The same without connecting.
void expectReachable(const Observer& observer, const std::string& manager);

/// Of its query. Throws Problem 400 where one of the two is missing.
Place placeOf(const Request& request);

} // namespace bxm::console
