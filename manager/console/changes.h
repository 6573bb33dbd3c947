#pragma once

#include "manager/console/http.h"
#include "manager/console/observer.h"

namespace bxm::console {

/// The requests that change something, by the same ways as bxadm's commands. Throws what
/// problemResponse tells.
class Changes {
public:
  explicit Changes(const Observer& observer) : m_observer(observer) {}

  Response createQueue(const Request& request) const;
  Response alterQueue(const Request& request) const;
  Response deleteQueue(const Request& request) const;
  Response purge(const Request& request) const;
  Response move(const Request& request) const;
  Response put(const Request& request) const;

private:
  const Observer& m_observer;
};

} // namespace bxm::console
