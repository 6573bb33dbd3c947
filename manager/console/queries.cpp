#include "manager/console/queries.h"

#include "manager/console/figures_json.h"
#include "manager/console/place.h"
#include "manager/engine/queue_walk.h"
#include "manager/engine/transfer.h"
#include "manager/view/message_json.h"

#include <algorithm>
#include <charconv>

namespace bxm::console {

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kLongestWalk = std::chrono::seconds(20);
constexpr std::size_t kPiece = 64 << 10; ///< that costs little memory

std::uint64_t numberOf(const Request& request, const char* name, std::uint64_t otherwise,
                       std::uint64_t most) {
  const std::string text = request.parameter(name).value_or(std::to_string(otherwise));
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number > most)
    throw Problem(400, std::string("'") + name + "' is a number from 0 to " + std::to_string(most));
  return number;
}

/// A queue with a connection of its own, gone through from its head.
struct Walk {
  Walk(const Observer& observer, const Place& place)
      : session(connectTo(observer, place.manager)),
        queue(*session, queueNamed(*session, place.queue)) {}
  /// Throws Problem where that takes too long.
  bool next() {
    if (Clock::now() > until) throw Problem(503, "the queue is too long to be gone through");
    return queue.next();
  }
  const std::unique_ptr<StoreSession> session;
  QueueWalk queue;
  const Clock::time_point until = Clock::now() + kLongestWalk;
};

/// The beginning of the data: text where that is UTF-8.
void preview(std::string_view data, Json& json) {
  std::string_view text = data.substr(0, Queries::kMostPreview);
  const bool isCut = text.size() < data.size();
  for (int i = 0; i < 3 && isCut && !isUtf8(text); ++i) text.remove_suffix(1); // cut within
  if (isUtf8(text))
    json["text"] = text;
  else
    json["hex"] = hexOf(data.substr(0, Queries::kMostPreview));
  json["truncated"] = isCut;
}

Json summaryOf(const QueueWalk& walk, std::int64_t now) {
  const std::string_view stored = walk.stored(), data = messageData(stored);
  const std::int64_t put = messagePutTime(stored), expiry = messageExpiry(stored);
  const Json whole = jsonOf(walk.priority(), stored.substr(0, stored.size() - data.size()));
  Json json{{"id", whole["id"]},
            {"priority", walk.priority()},
            {"put", utcTime(put)},
            {"age_ms", std::max<std::int64_t>(now - put, 0)},
            {"expires_in_ms", expiry ? Json(std::max<std::int64_t>(expiry - now, 0)) : Json()},
            {"persistent", !whole.contains("persistent")},
            {"size", data.size()}};
  preview(data, json);
  return json;
}

} // namespace

Json definitionOf(const QueueDefinition& definition) {
  return {{"max_depth", definition.maxDepth},
          {"max_length", definition.maxMessageLength},
          {"default_priority", definition.defaultPriority},
          {"persistent", definition.defaultPersistence == BXPER_PERSISTENT},
          {"put_inhibited", definition.putInhibited},
          {"get_inhibited", definition.getInhibited},
          {"created", utcTime(definition.created * 1000)},
          {"altered", utcTime(definition.altered * 1000)}};
}

Response Queries::queue(const Request& request) {
  const Place place = placeOf(request);
  const auto session = connectTo(m_observer, place.manager);
  const QueueDefinition definition = queueNamed(*session, place.queue);
  const auto manager = m_observer.manager(place.manager);
  QueueView view = viewOf(*session, definition);
  if (manager && manager->queues)
    for (const QueueView& seen : *manager->queues)
      if (seen.id == view.id) {
        view.putRate = seen.putRate;
        view.getRate = seen.getRate;
        view.growsUnread = seen.growsUnread && view.readers == 0 && view.gets == seen.gets;
      }
  const auto since = session->countsSince();
  return jsonResponse({{"queue", rowOf(place.manager, view)},
                       {"definition", definitionOf(definition)},
                       {"counted",
                        {{"puts", view.puts},
                         {"gets", view.gets},
                         {"since", since ? Json(utcTime(*since)) : Json()}}},
                       {"history", m_observer.history().of(place.manager, place.queue)}});
}

Response Queries::messages(const Request& request) {
  const Place place = placeOf(request);
  const std::uint64_t offset = numberOf(request, "offset", 0, kMostOffset);
  const std::uint64_t count = numberOf(request, "count", 50, kMostCount);
  const auto slot = m_walks.take();
  Walk walk(m_observer, place);
  Json messages = Json::array();
  bool more = walk.next();
  for (std::uint64_t at = 0; more && at < offset; ++at) more = walk.next();
  const std::int64_t now = walk.session->now();
  for (; more && messages.size() < count; more = walk.next())
    messages.push_back(summaryOf(walk.queue, now));
  return jsonResponse({{"offset", offset}, {"more", more}, {"messages", std::move(messages)}});
}

Response Queries::message(const Request& request) {
  const Place place = placeOf(request);
  const auto id = request.parameter("id");
  if (!id) throw Problem(400, "the parameter 'id' is missing");
  const std::uint64_t offset = numberOf(request, "offset", 0, kMostOffset + kMostCount);
  const auto slot = m_wholes.take();
  Walk walk(m_observer, place);
  Json found; // that of the row or before it, for by now it may have moved up
  for (std::uint64_t row = 0; (row <= offset || found.is_null()) && walk.next(); ++row)
    if (identifierOf(walk.queue.stored()) == *id)
      found = jsonOf(walk.queue.priority(), walk.queue.stored());
  if (found.is_null())
    throw Problem(404, "there is no such message on queue " + place.queue + " any more");
  Response response = jsonResponse(found);
  // Many slow clients may have a small one each, and keep nobody from another.
  if (response.body.size() > kPiece) response.slot = slot;
  return response;
}

/// Connected as long as the client reads.
Response Queries::download(const Request& request) {
  const Place place = placeOf(request);
  const auto slot = m_downloads.take();
  const auto walk = std::make_shared<Walk>(m_observer, place);
  std::string name = place.queue; // with a queue's name nothing but these is there to be replaced
  for (char& c : name)
    if (c == '/' || c == '%') c = '_';
  Response response{200, "application/x-ndjson", ""};
  response.headers = {{"Content-Disposition", "attachment; filename=\"" + name + ".jsonl\""}};
  response.stream = [slot, walk](Output& output) {
    std::string piece;
    try {
      while (walk->queue.next()) {
        piece += jsonOf(walk->queue.priority(), walk->queue.stored()).dump() + "\n";
        if (piece.size() >= kPiece) {
          if (!output.write(piece)) return false;
          piece.clear();
        }
      }
    } catch (const std::exception&) { // the client sees that it is not whole
      return false;
    }
    return piece.empty() || output.write(piece);
  };
  return response;
}

} // namespace bxm::console
