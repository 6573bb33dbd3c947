#include "manager/console/changes.h"

#include "manager/base/failure.h"
#include "manager/base/names.h"
#include "manager/base/random_number.h"
#include "manager/console/json_body.h"
#include "manager/console/place.h"
#include "manager/console/queries.h"
#include "manager/engine/administration.h"
#include "manager/engine/transfer.h"
#include "manager/store/message.h"
#include "manager/view/message_json.h"

#include <cstring>
#include <initializer_list>
#include <limits>
#include <utility>

namespace bxm::console {

namespace {

/// The values of a body, each asked for by its name; one that nobody asks for is wrong.
class Values {
public:
  explicit Values(Json body) : m_body(std::move(body)) {}

  std::optional<std::string> text(const char* key) {
    const Json value = take(key);
    if (value.is_null()) return std::nullopt;
    if (!value.is_string()) throw Problem(400, std::string("'") + key + "' is a text");
    return value.get<std::string>();
  }
  std::optional<bool> flag(const char* key) {
    const Json value = take(key);
    if (value.is_null()) return std::nullopt;
    if (!value.is_boolean()) throw Problem(400, std::string("'") + key + "' is true or false");
    return value.get<bool>();
  }
  std::optional<std::int64_t> number(const char* key, std::int64_t least, std::int64_t most) {
    const Json value = take(key);
    if (value.is_null()) return std::nullopt;
    const auto fits = wholeNumber(value, least, most);
    if (!fits)
      throw Problem(400, std::string("'") + key + "' is a whole number from " +
                             std::to_string(least) + " to " + std::to_string(most));
    return fits;
  }
  std::optional<BXLONG> attribute(const char* key) {
    constexpr auto kMost = std::numeric_limits<BXLONG>::max(); // the manager knows more
    const auto value = number(key, -kMost, kMost);
    return value ? std::optional(static_cast<BXLONG>(*value)) : std::nullopt;
  }
  void expectEmpty() const {
    if (!m_body.empty()) throw Problem(400, "'" + m_body.items().begin().key() + "' is not known");
  }

private:
  Json take(const char* key) {
    const auto found = m_body.find(key);
    if (found == m_body.end()) return nullptr;
    Json value = std::move(*found);
    m_body.erase(found);
    if (value.is_null()) throw Problem(400, std::string("'") + key + "' has no such value");
    return value;
  }
  Json m_body;
};

QueueSettings settingsIn(Values& values) {
  QueueSettings settings;
  settings.maxDepth = values.attribute("max_depth");
  settings.maxMessageLength = values.attribute("max_length");
  settings.defaultPriority = values.attribute("default_priority");
  settings.persistent = values.flag("persistent");
  settings.putInhibited = values.flag("put_inhibited");
  settings.getInhibited = values.flag("get_inhibited");
  values.expectEmpty();
  return settings;
}

void expectConfirmed(const Request& request, const Place& place) {
  Values values(bodyOf(request));
  if (values.text("confirm") != place.queue)
    throw Problem(400, "'confirm' is to repeat the queue's name");
  values.expectEmpty();
}

/// What was done counts, also where the rest could not be.
template <typename Act>
Response counted(const char* what, Act act) {
  std::uint64_t count = 0;
  try {
    act([&](std::uint64_t done) { count = done; });
  } catch (const Failure& failure) {
    if (count == 0) throw;
    throw Failure(failure.reason(), std::string(failure.what()) + "; " + what +
                                        " before that: " + std::to_string(count));
  }
  return jsonResponse({{what, count}});
}

std::string dataIn(Values& values) {
  const auto text = values.text("text"), base64 = values.text("base64");
  if (text.has_value() == base64.has_value())
    throw Problem(400, "a message has either 'text' or 'base64'");
  return text ? *text : bytesOfBase64(*base64);
}

} // namespace

Response Changes::createQueue(const Request& request) const {
  Values values(bodyOf(request));
  const std::string manager = values.text("manager").value_or("");
  const std::string queue = values.text("queue").value_or("");
  const QueueSettings settings = settingsIn(values);
  if (!isName(queue)) throw Problem(400, "a queue's name is 1 to 48 of A-Z a-z 0-9 . _ / %");
  expectReachable(m_observer, manager);
  createLocalQueue(manager, queue, settings);
  return jsonResponse({{"manager", manager}, {"queue", queue}}, 201);
}

Response Changes::alterQueue(const Request& request) const {
  const Place place = placeOf(request);
  Values values(bodyOf(request));
  const QueueSettings settings = settingsIn(values);
  expectReachable(m_observer, place.manager);
  alterLocalQueue(place.manager, place.queue, settings);
  return jsonResponse(definitionOf(findLocalQueue(place.manager, place.queue).definition));
}

Response Changes::deleteQueue(const Request& request) const {
  const Place place = placeOf(request);
  expectConfirmed(request, place);
  expectReachable(m_observer, place.manager);
  deleteLocalQueue(place.manager, place.queue);
  return jsonResponse({{"manager", place.manager}, {"queue", place.queue}});
}

Response Changes::purge(const Request& request) const {
  const Place place = placeOf(request);
  expectConfirmed(request, place);
  const auto session = connectTo(m_observer, place.manager);
  return counted("purged", [&](const Told& told) { purgeMessages(*session, place.queue, told); });
}

Response Changes::move(const Request& request) const {
  const Place place = placeOf(request);
  Values values(bodyOf(request));
  const auto to = values.text("to");
  if (!to) throw Problem(400, "'to' is missing");
  Selection selection;
  if (const auto count = values.number("count", 1, std::numeric_limits<std::int64_t>::max()))
    selection.count = static_cast<std::uint64_t>(*count);
  selection.text = values.text("matching").value_or("");
  values.expectEmpty();
  const auto session = connectTo(m_observer, place.manager);
  return counted("moved", [&](const Told& told) {
    moveMessages(*session, place.queue, *to, selection, told);
  });
}

/// As a program's put: what is not said is as the queue has it.
Response Changes::put(const Request& request) const {
  const Place place = placeOf(request);
  Values values(bodyOf(request));
  const std::string data = dataIn(values);
  const auto priority = values.number("priority", 0, BXPRI_MAXIMUM);
  const auto life = values.number("expires_in_ms", 1, std::int64_t{100} * INT32_MAX);
  const auto persistent = values.flag("persistent");
  values.expectEmpty();
  const auto session = connectTo(m_observer, place.manager);
  const QueueDefinition queue = queueNamed(*session, place.queue);
  BXMD descriptor = BXMD_DEFAULT;
  std::memcpy(descriptor.format, BXFMT_STRING, sizeof descriptor.format);
  descriptor.persistence = queue.defaultPersistence;
  if (persistent) descriptor.persistence = *persistent ? BXPER_PERSISTENT : BXPER_NOT_PERSISTENT;
  MessageTimes times;
  times.put = session->now();
  if (life) times.expires = times.put + *life;
  std::string stored;
  encodeMessageHeader(descriptor, times, {randomNumber(), 1}, stored);
  const std::string id = identifierOf(stored);
  Import import(*session, place.queue);
  import.put(static_cast<int>(priority.value_or(queue.defaultPriority)), stored + data);
  import.commit();
  return jsonResponse({{"id", id}}, 201);
}

} // namespace bxm::console
