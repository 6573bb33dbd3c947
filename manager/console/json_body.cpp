#include "manager/console/json_body.h"

#include "manager/console/problem.h"

namespace bxm::console {

namespace {
constexpr int kMostValues = 32;
}

Json bodyOf(const Request& request) {
  int keys = 0;
  bool isPlain = true;
  const auto isWanted = [&](int depth, Json::parse_event_t event, Json&) {
    const bool isNested = event == Json::parse_event_t::array_start ||
                          (event == Json::parse_event_t::object_start && depth > 0);
    if (isNested || (event == Json::parse_event_t::key && ++keys > kMostValues)) isPlain = false;
    return isPlain;
  };
  const Json body = Json::parse(request.body, isWanted, false);
  if (!isPlain) throw Problem(400, "the body is no JSON object of a few plain values");
  if (!body.is_object()) throw Problem(400, "the body is no JSON object");
  return body;
}

} // namespace bxm::console
