#pragma once

#include "manager/console/observer.h"

#include <string>
#include <vector>

namespace bxm::console {

constexpr const char* kMetricsType = "text/plain; version=0.0.4; charset=utf-8";

/// The figures in Prometheus' text format.
std::string metricsOf(const std::vector<ManagerView>& managers, std::size_t streams);

} // namespace bxm::console
