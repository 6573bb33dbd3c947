#include "manager/console/json_body.h"

#include "manager/console/problem.h"

namespace bxm::console {

namespace {
constexpr int kMostValues = 32;
}

Json bodyOf(const Request& request) {
  int keys = 0;
  // Ends the parsing at once: what is nested a million times never comes into being.
  const auto expectPlain = [&](int depth, Json::parse_event_t event, Json&) {
    const bool isNested = event == Json::parse_event_t::array_start ||
                          (event == Json::parse_event_t::object_start && depth > 0);
    if (isNested || (event == Json::parse_event_t::key && ++keys > kMostValues))
      throw Problem(400, "the body is no JSON object of a few plain values");
    return true;
  };
  Json body = Json::parse(request.body, expectPlain, false);
  if (!body.is_object()) throw Problem(400, "the body is no JSON object");
  return body;
}

} // namespace bxm::console
