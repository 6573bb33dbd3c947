#pragma once

#include "manager/console/http.h"
#include "manager/view/json.h"

#include <exception>
#include <stdexcept>

namespace bxm::console {

/// What a request cannot be answered with anything but: thrown by what answers requests.
class Problem : public std::runtime_error {
public:
  Problem(int status, const std::string& detail) : std::runtime_error(detail), m_status(status) {}
  int status() const { return m_status; }

private:
  int m_status;
};

Response jsonResponse(const Json& json, int status = 200);
/// application/problem+json.
Response problemResponse(int status, const std::string& detail, Json more = Json::object());
/// The same for what was caught: a Problem, a manager's Failure, anything.
Response problemResponse(const std::exception& error);

} // namespace bxm::console
