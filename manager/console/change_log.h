#pragma once

#include "manager/console/http.h"

#include <string>

namespace bxm::console {

/// A line on standard error for a change that was made or refused: when, from where, as whom, what,
/// and what came of it. Neither a message's data nor anything that would disturb a terminal is in
/// it.
void logChange(const Request& request, const Response& response);

} // namespace bxm::console
