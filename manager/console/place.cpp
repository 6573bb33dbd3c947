#include "manager/console/place.h"

#include "bx/bx.h"
#include "manager/store/catalog.h"

namespace bxm::console {

namespace {
std::string wordOf(const Request& request, const std::string& name) {
  const auto word = request.parameter(name);
  if (!word || word->empty()) throw Problem(400, "the parameter '" + name + "' is missing");
  return *word;
}
} // namespace

Place placeOf(const Request& request) {
  return {wordOf(request, "manager"), wordOf(request, "queue")};
}

void expectReachable(const Observer& observer, const std::string& manager) {
  const auto view = observer.manager(manager);
  if (!view) throw Problem(404, "there is no queue manager " + manager);
  if (view->reason == BXRC_Q_MGR_NOT_AVAILABLE || view->reason == BXRC_CONNECTION_BROKEN)
    throw Problem(503, view->fault);
}

std::unique_ptr<StoreSession> connectTo(const Observer& observer, const std::string& manager) {
  expectReachable(observer, manager);
  return catalog().connect(manager);
}

} // namespace bxm::console
