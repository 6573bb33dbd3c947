#include "manager/console/change_log.h"

#include "manager/console/access.h"
#include "manager/console/json_body.h"
#include "manager/console/problem.h"
#include "manager/store/message.h"

#include <cstdio>
#include <fmt/format.h>

namespace bxm::console {

namespace {

constexpr std::size_t kMostText = 200;

/// The beginning, in printable ASCII from a character on.
std::string plain(std::string_view text, char first = ' ') {
  std::string line;
  for (const char c : text.substr(0, kMostText))
    line += c >= first && c < '\x7F' && c != '\\'
                ? std::string(1, c)
                : fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
  return line + (text.size() > kMostText ? "..." : "");
}

/// Without blanks, so that no value looks like what follows it.
std::string word(std::string_view text) { return plain(text, '!'); }

/// What was understood, each value cut by itself: nothing that is sent beside it hides it.
std::string placeIn(const Request& request) {
  std::string place;
  for (const char* name : {"manager", "queue"})
    if (const auto value = request.parameter(name))
      place += fmt::format("{}{}={}", place.empty() ? '?' : '&', name, word(*value));
  return place;
}

/// What a body says, without the data of a message.
std::string wordsOf(const Request& request) try {
  const Json body = bodyOf(request);
  std::string words;
  for (const auto& [key, value] : body.items()) {
    const bool isData = key == "text" || key == "base64";
    words += " " + word(key) + "=" +
             (isData              ? "..."
              : value.is_string() ? word(value.get_ref<const std::string&>())
                                  : value.dump());
  }
  return words;
} catch (const Problem&) {
  return "";
}

std::string outcomeOf(const Response& response) {
  if (response.status < 400) return "done";
  const Json problem = Json::parse(response.body, nullptr, false);
  return "refused, " + plain(problem.is_object() ? problem.value("detail", "") : "");
}

} // namespace

void logChange(const Request& request, const Response& response) {
  const std::string line =
      fmt::format("{} {} {} {} {}{}{}: {} {}\n", utcTime(clockNow()), request.peer,
                  nameOf(request.caller), word(request.method), word(request.path),
                  placeIn(request), wordsOf(request), response.status, outcomeOf(response));
  static_cast<void>(std::fwrite(line.data(), 1, line.size(), stderr)); // unbuffered: in one piece
}

} // namespace bxm::console
