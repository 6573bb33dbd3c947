#pragma once

#include "manager/console/http.h"
#include "manager/console/observer.h"
#include "manager/console/slots.h"
#include "manager/store/queue_definition.h"

namespace bxm::console {

/// The requests about one queue that change nothing. Throws what problemResponse tells.
class Queries {
public:
  static constexpr std::uint64_t kMostOffset = 100'000, kMostCount = 200;
  static constexpr std::size_t kMostPreview = 1024; ///< bytes of a message's data

  explicit Queries(Observer& observer) : m_observer(observer) {}

  Response queue(const Request& request);
  Response messages(const Request& request);
  Response message(const Request& request);
  Response download(const Request& request);

private:
  Observer& m_observer;
  Slots m_walks{8, "walks through queues"}, m_wholes{8, "whole messages"},
      m_downloads{4, "downloads"};
};

Json definitionOf(const QueueDefinition& definition);

} // namespace bxm::console
