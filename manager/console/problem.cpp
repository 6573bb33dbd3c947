#include "manager/console/problem.h"

#include "manager/base/failure.h"

namespace bxm::console {

namespace {

const char* titleOf(int status) {
  switch (status) {
  case 400: return "Bad Request";
  case 401: return "Unauthorized";
  case 403: return "Forbidden";
  case 404: return "Not Found";
  case 405: return "Method Not Allowed";
  case 408: return "Request Timeout";
  case 409: return "Conflict";
  case 413: return "Content Too Large";
  case 414: return "URI Too Long";
  case 429: return "Too Many Requests";
  case 431: return "Request Header Fields Too Large";
  case 501: return "Not Implemented";
  case 503: return "Service Unavailable";
  default: return "Internal Server Error";
  }
}

int statusOf(BXLONG reason) {
  switch (reason) {
  case BXRC_UNKNOWN_OBJECT:
  case BXRC_Q_MGR_NAME_ERROR: return 404;
  case BXRC_INT_ATTRS_ERROR:
  case BXRC_MD_ERROR: return 400;
  case BXRC_CONNECTION_BROKEN:
  case BXRC_MAX_CONNECTIONS:
  case BXRC_Q_MGR_NOT_AVAILABLE: return 503;
  case BXRC_STORAGE_FULL:
  case BXRC_OBJECT_DAMAGED:
  case BXRC_RESOURCE_PROBLEM:
  case BXRC_OUTCOME_UNKNOWN:
  case BXRC_UNEXPECTED: return 500;
  default: return 409;
  }
}

std::string textOf(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace

Response jsonResponse(const Json& json, int status) {
  return {status, "application/json", textOf(json)};
}

Response problemResponse(int status, const std::string& detail, Json more) {
  Json problem{
      {"type", "about:blank"}, {"title", titleOf(status)}, {"status", status}, {"detail", detail}};
  problem.update(more);
  Response response{status, "application/problem+json", textOf(problem)};
  if (status == 401) response.headers.emplace_back("WWW-Authenticate", "Bearer");
  return response;
}

Response problemResponse(const std::exception& error) {
  if (const auto* problem = dynamic_cast<const Problem*>(&error))
    return problemResponse(problem->status(), problem->what());
  if (const auto* failure = dynamic_cast<const Failure*>(&error))
    return problemResponse(statusOf(failure->reason()), failure->what(),
                           {{"reason", failure->reason()}});
  if (const auto* wrong = dynamic_cast<const Json::exception*>(&error))
    return problemResponse(400, wrong->what());
  return problemResponse(500, "the console could not do it");
}

} // namespace bxm::console
