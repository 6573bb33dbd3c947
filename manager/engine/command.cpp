#include "manager/engine/command.h"

#include "manager/base/failure.h"
#include "manager/base/names.h"
#include "manager/engine/oldest_message.h"

#include <algorithm>
#include <ctime>
#include <initializer_list>
#include <optional>

namespace bxm {

namespace {

/// A command's own refusal.
struct Refusal {
  BXLONG reason;
};

std::optional<BXLONG> integerIn(const Bag& bag, BXLONG selector) {
  const Bag::Value* value = bag.find(selector);
  if (!value) return std::nullopt;
  if (const auto* number = std::get_if<BXLONG>(value)) return *number;
  throw Refusal{BXRC_SELECTOR_TYPE_ERROR};
}

BXLONG integerIn(const Bag& bag, BXLONG selector, BXLONG byDefault, BXLONG lowest, BXLONG highest) {
  const BXLONG number = integerIn(bag, selector).value_or(byDefault);
  if (number < lowest || number > highest) throw Refusal{BXRC_INT_ATTRS_ERROR};
  return number;
}

std::optional<std::string> textIn(const Bag& bag, BXLONG selector) {
  const Bag::Value* value = bag.find(selector);
  if (!value) return std::nullopt;
  if (const auto* text = std::get_if<std::string>(value))
    return unpadded(text->data(), text->size());
  throw Refusal{BXRC_SELECTOR_TYPE_ERROR};
}

void checkSelectors(const Bag& bag, std::initializer_list<BXLONG> known) {
  for (const BXLONG selector : bag.selectors())
    if (std::find(known.begin(), known.end(), selector) == known.end())
      throw Refusal{BXRC_SELECTOR_ERROR};
}

std::string queueNameIn(const Bag& bag) {
  const auto name = textIn(bag, BXCA_QUEUE_NAME);
  if (!name) throw Refusal{BXRC_SELECTOR_ERROR};
  if (!isName(*name)) throw Refusal{BXRC_UNKNOWN_OBJECT};
  if (integerIn(bag, BXIA_QUEUE_TYPE).value_or(BXQT_LOCAL) != BXQT_LOCAL)
    throw Refusal{BXRC_Q_TYPE_ERROR};
  return *name;
}

bool switchIn(const Bag& bag, BXLONG selector, bool byDefault) {
  return integerIn(bag, selector, byDefault ? BXPO_YES : BXPO_NO, BXPO_NO, BXPO_YES) == BXPO_YES;
}

/// What the bag does not tell stays as it is.
void setAttributes(const Bag& bag, QueueDefinition& queue) {
  queue.maxDepth = integerIn(bag, BXIA_MAX_DEPTH, queue.maxDepth, 0, kMaxDepthLimit);
  queue.maxMessageLength =
      integerIn(bag, BXIA_MAX_MESSAGE_LENGTH, queue.maxMessageLength, 1, kMessageLengthLimit);
  queue.defaultPersistence = integerIn(bag, BXIA_DEFAULT_PERSISTENCE, queue.defaultPersistence,
                                       BXPER_NOT_PERSISTENT, BXPER_PERSISTENT);
  queue.defaultPriority =
      integerIn(bag, BXIA_DEFAULT_PRIORITY, queue.defaultPriority, 0, BXPRI_MAXIMUM);
  queue.getInhibited = switchIn(bag, BXIA_INHIBIT_GET, queue.getInhibited);
  queue.putInhibited = switchIn(bag, BXIA_INHIBIT_PUT, queue.putInhibited);
}

void createQueue(StoreSession& session, const Bag& arguments) {
  checkSelectors(arguments,
                 {BXCA_QUEUE_NAME, BXIA_QUEUE_TYPE, BXIA_MAX_DEPTH, BXIA_MAX_MESSAGE_LENGTH,
                  BXIA_DEFAULT_PERSISTENCE, BXIA_DEFAULT_PRIORITY, BXIA_INHIBIT_GET,
                  BXIA_INHIBIT_PUT, BXCA_CLUSTER_NAME});
  QueueDefinition definition;
  definition.name = queueNameIn(arguments);
  definition.cluster = textIn(arguments, BXCA_CLUSTER_NAME).value_or("");
  if (!definition.cluster.empty() && !isName(definition.cluster))
    throw Refusal{BXRC_UNKNOWN_OBJECT};
  setAttributes(arguments, definition);
  if (!session.createQueue(definition)) throw Refusal{BXRC_OBJECT_EXISTS};
}

void changeQueue(StoreSession& session, const Bag& arguments) {
  checkSelectors(arguments, {BXCA_QUEUE_NAME, BXIA_QUEUE_TYPE, BXIA_MAX_DEPTH,
                             BXIA_MAX_MESSAGE_LENGTH, BXIA_DEFAULT_PERSISTENCE,
                             BXIA_DEFAULT_PRIORITY, BXIA_INHIBIT_GET, BXIA_INHIBIT_PUT});
  auto definition = session.findQueue(queueNameIn(arguments));
  if (!definition) throw Refusal{BXRC_UNKNOWN_OBJECT};
  setAttributes(arguments, *definition);
  if (!session.alterQueue(*definition)) throw Refusal{BXRC_UNKNOWN_OBJECT};
}

void deleteQueue(StoreSession& session, const Bag& arguments) {
  checkSelectors(arguments, {BXCA_QUEUE_NAME, BXIA_QUEUE_TYPE, BXIA_PURGE});
  const bool purge = integerIn(arguments, BXIA_PURGE, BXPO_NO, BXPO_NO, BXPO_YES) == BXPO_YES;
  switch (session.deleteQueue(queueNameIn(arguments), purge)) {
  case StoreSession::Deleted::kDone: return;
  case StoreSession::Deleted::kUnknownQueue: throw Refusal{BXRC_UNKNOWN_OBJECT};
  case StoreSession::Deleted::kNotEmpty: throw Refusal{BXRC_Q_NOT_EMPTY};
  }
}

std::string formatted(std::int64_t seconds, const char* format, std::size_t width) {
  const std::time_t time = static_cast<std::time_t>(seconds);
  std::tm local{};
  ::localtime_r(&time, &local);
  char text[32];
  std::string out(text, std::strftime(text, sizeof text, format, &local));
  out.resize(width, ' ');
  return out;
}

std::string dateOf(std::int64_t seconds) { return formatted(seconds, "%Y-%m-%d", BX_DATE_LENGTH); }
std::string timeOf(std::int64_t seconds) { return formatted(seconds, "%H.%M.%S", BX_TIME_LENGTH); }

std::string padded(const std::string& name) {
  std::string out = name;
  out.resize(BX_NAME_LENGTH, ' ');
  return out;
}

BXLONG saturated(std::uint64_t number) {
  return static_cast<BXLONG>(std::min<std::uint64_t>(number, INT32_MAX));
}

/// In seconds; -1 without a message.
BXLONG oldestAge(StoreSession& session, const QueueDefinition& queue) {
  const auto put = oldestMessage(session, queue);
  if (!put) return -1;
  return saturated(static_cast<std::uint64_t>(std::max<std::int64_t>(session.now() - *put, 0)) /
                   1000);
}

/// What an inquiry tells of one queue. What takes a look is looked at once.
class Inquiry {
public:
  Inquiry(StoreSession& session, const QueueDefinition& queue)
      : m_session(session), m_queue(queue) {}
  Bag::Value attribute(BXLONG selector);

private:
  const QueueFigures& figures() {
    if (!m_figures) m_figures = m_session.open(m_queue)->figures();
    return *m_figures;
  }

  StoreSession& m_session;
  const QueueDefinition& m_queue;
  std::optional<QueueFigures> m_figures;
};

Bag::Value Inquiry::attribute(BXLONG selector) {
  const QueueDefinition& queue = m_queue;
  switch (selector) {
  case BXIA_CURRENT_DEPTH: return saturated(m_session.open(queue)->depth());
  case BXIA_DEFAULT_PERSISTENCE: return queue.defaultPersistence;
  case BXIA_DEFAULT_PRIORITY: return queue.defaultPriority;
  case BXIA_INHIBIT_GET: return BXLONG{queue.getInhibited ? BXPO_YES : BXPO_NO};
  case BXIA_INHIBIT_PUT: return BXLONG{queue.putInhibited ? BXPO_YES : BXPO_NO};
  case BXIA_MAX_MESSAGE_LENGTH: return queue.maxMessageLength;
  case BXIA_MAX_DEPTH: return queue.maxDepth;
  case BXIA_OPEN_INPUT_COUNT: return saturated(figures().readers);
  case BXIA_OPEN_OUTPUT_COUNT: return saturated(figures().writers);
  case BXIA_UNCOMMITTED: return saturated(figures().uncommitted);
  case BXIA_OLDEST_AGE: return oldestAge(m_session, queue);
  case BXCA_PUT_COUNT: return std::to_string(figures().puts);
  case BXCA_GET_COUNT: return std::to_string(figures().gets);
  case BXCA_COUNTED_SINCE: {
    const auto since = m_session.countsSince();
    return since ? std::to_string(*since) : std::string();
  }
  case BXIA_QUEUE_TYPE: return BXLONG{BXQT_LOCAL};
  case BXCA_CREATION_DATE: return dateOf(queue.created);
  case BXCA_CREATION_TIME: return timeOf(queue.created);
  case BXCA_QUEUE_NAME: return padded(queue.name);
  case BXCA_MANAGER_NAME: return std::string();
  case BXCA_ALTERATION_DATE: return dateOf(queue.altered);
  case BXCA_ALTERATION_TIME: return timeOf(queue.altered);
  case BXCA_CLUSTER_NAME: return padded(queue.cluster);
  default: throw Refusal{BXRC_SELECTOR_ERROR};
  }
}

void inquireQueue(StoreSession& session, const Bag& arguments, Bag& answer) {
  checkSelectors(arguments, {BXCA_QUEUE_NAME, BXIA_QUEUE_TYPE});
  const auto queue = session.findQueue(queueNameIn(arguments));
  if (!queue) throw Refusal{BXRC_UNKNOWN_OBJECT};
  std::vector<BXLONG> wanted = arguments.inquiries();
  if (wanted.empty())
    wanted = {BXCA_QUEUE_NAME,       BXIA_QUEUE_TYPE,         BXIA_CURRENT_DEPTH,
              BXIA_MAX_DEPTH,        BXIA_MAX_MESSAGE_LENGTH, BXIA_DEFAULT_PERSISTENCE,
              BXIA_DEFAULT_PRIORITY, BXIA_INHIBIT_GET,        BXIA_INHIBIT_PUT,
              BXCA_CREATION_DATE,    BXCA_CREATION_TIME,      BXCA_ALTERATION_DATE,
              BXCA_ALTERATION_TIME,  BXCA_CLUSTER_NAME,       BXCA_MANAGER_NAME};
  Inquiry inquiry(session, *queue);
  for (const BXLONG selector : wanted) answer.add(selector, inquiry.attribute(selector));
}

void run(StoreSession& session, BXLONG command, const Bag& arguments, Bag& answer) {
  switch (command) {
  case BXCMD_CHANGE_QUEUE: return changeQueue(session, arguments);
  case BXCMD_CREATE_QUEUE: return createQueue(session, arguments);
  case BXCMD_DELETE_QUEUE: return deleteQueue(session, arguments);
  case BXCMD_INQUIRE_QUEUE: return inquireQueue(session, arguments, answer);
  default: throw Refusal{BXRC_OPTIONS_ERROR};
  }
}

} // namespace

Codes execute(Connection& connection, BXLONG command, const Bag& arguments, Bag& response) {
  return connection.withSession([&](StoreSession& session) {
    response.clear();
    if (!session.commandServerRuns()) return failed(BXRC_COMMAND_SERVER_NOT_AVAILABLE);
    const auto answer = std::make_shared<Bag>();
    Codes own = ok();
    try {
      run(session, command, arguments, *answer);
    } catch (const Refusal& refusal) {
      answer->clear();
      own = failed(refusal.reason);
    }
    answer->add(BXIA_COMPLETION, own.completion);
    answer->add(BXIA_REASON, own.reason);
    response.add(BXHA_RESPONSE, answer);
    return own.completion == BXCC_OK ? ok() : failed(BXRC_COMMAND_FAILED);
  });
}

} // namespace bxm
