#include "manager/admin/commands.h"
#include "manager/admin/program.h"
#include "manager/admin/report.h"
#include "manager/engine/administration.h"
#include "manager/engine/transfer.h"
#include "manager/view/manager_watch.h"

#include <ctime>
#include <fmt/chrono.h>
#include <fmt/format.h>

namespace bxm::admin {

namespace {

// ---- create, alter ------------------------------------------------------------------------------

struct Definition {
  std::string manager, queue;
  QueueSettings settings;
};

void addSwitch(CLI::App& command, const std::string& name, std::optional<bool>& value,
               const std::string& what) {
  command
      .add_option_function<std::string>(
          name, [&value](const std::string& word) { value = word == "yes"; }, what)
      ->type_name("yes|no")
      ->check(CLI::IsMember({"yes", "no"}).description(""));
}

void addSettings(CLI::App& command, QueueSettings& settings) {
  const auto addNumber = [&](const char* name, std::optional<BXLONG>& value, const char* kind,
                             BXLONG least, BXLONG most, const char* what) {
    command.add_option(name, value, fmt::format("{}, {} to {}", what, least, most))
        ->type_name(kind)
        ->transform(decimal(least, most));
  };
  addNumber("--max-depth", settings.maxDepth, "COUNT", 0, kMaxDepthLimit,
            "How many messages it holds at the most");
  addNumber("--max-length", settings.maxMessageLength, "BYTES", 1, kMessageLengthLimit,
            "How long a message may be");
  addNumber("--priority", settings.defaultPriority, "PRIORITY", 0, BXPRI_MAXIMUM,
            "The priority of messages that are put without one");
  addSwitch(command, "--persistent", settings.persistent,
            "Whether messages say that they are persistent; all are kept on the disk");
  addSwitch(command, "--inhibit-put", settings.putInhibited, "Whether puts are refused (2051)");
  addSwitch(command, "--inhibit-get", settings.getInhibited, "Whether gets are refused (2016)");
}

void declareCreate(CLI::App& command, Definition& definition) {
  addWord(command, "NAME", definition.queue, "1 to 48 characters of A-Z a-z 0-9 . _ / %");
  addSettings(command, definition.settings);
  const QueueDefinition made;
  const auto word = [](bool is) { return is ? "yes" : "no"; };
  for (const auto& [option, value] : std::initializer_list<std::pair<const char*, std::string>>{
           {"--max-depth", std::to_string(made.maxDepth)},
           {"--max-length", std::to_string(made.maxMessageLength)},
           {"--priority", std::to_string(made.defaultPriority)},
           {"--persistent", word(made.defaultPersistence == BXPER_PERSISTENT)},
           {"--inhibit-put", word(made.putInhibited)},
           {"--inhibit-get", word(made.getInhibited)}})
    command.get_option(option)->default_str(value);
  addManagerOption(command, definition.manager);
}

int create(const Definition& definition) {
  createLocalQueue(definition.manager, definition.queue, definition.settings);
  fmt::print("Queue {} created.\n", definition.queue);
  return 0;
}

void declareAlter(CLI::App& command, Definition& definition) {
  addWord(command, "QUEUE", definition.queue, "Which one; it may be in use");
  addSettings(command, definition.settings);
  addManagerOption(command, definition.manager);
}

int alter(const Definition& definition) {
  if (definition.settings == QueueSettings())
    throw CLI::ValidationError("there is nothing to alter: one of --max-depth, --max-length, "
                               "--priority, --persistent, --inhibit-put, --inhibit-get is needed");
  alterLocalQueue(definition.manager, definition.queue, definition.settings);
  fmt::print("Queue {} altered.\n", definition.queue);
  return 0;
}

// ---- list, show ---------------------------------------------------------------------------------

struct List {
  std::string manager;
  bool json = false;
};

void declareList(CLI::App& command, List& list) {
  addManagerOption(command, list.manager);
  addJsonFlag(command, list.json);
}

std::string inhibitedIn(const QueueDefinition& queue) {
  if (queue.putInhibited && queue.getInhibited) return "put, get";
  return queue.putInhibited ? "put" : queue.getInhibited ? "get" : "";
}

int list(const List& list) {
  Json rows = Json::array();
  for (const auto& [queue, depth] : listLocalQueues(list.manager))
    rows.push_back({{"name", queue.name},
                    {"depth", depth},
                    {"max_depth", queue.maxDepth},
                    {"max_length", queue.maxMessageLength},
                    {"inhibited", inhibitedIn(queue)}});
  reportRows(rows, list.json);
  return 0;
}

struct Show {
  std::string manager, queue;
  bool json = false;
};

void declareShow(CLI::App& command, Show& show) {
  addWord(command, "QUEUE", show.queue, "Which one");
  addManagerOption(command, show.manager);
  addJsonFlag(command, show.json);
}

std::string localTime(std::int64_t seconds) {
  return fmt::format("{:%Y-%m-%d %H:%M:%S}", fmt::localtime(static_cast<std::time_t>(seconds)));
}

int show(const Show& show) {
  const auto session = catalog().connect(show.manager);
  const QueueDefinition queue = queueNamed(*session, show.queue);
  const QueueView view = viewOf(*session, queue);
  const auto timeOrNone = [](const std::optional<std::int64_t>& milliseconds) {
    return milliseconds ? Json(localTime(*milliseconds / 1000)) : Json();
  };
  reportOne({{"name", queue.name},
             {"depth", view.depth},
             {"oldest_put", timeOrNone(view.oldestPut)},
             {"uncommitted", view.uncommitted},
             {"readers", view.readers},
             {"writers", view.writers},
             {"puts", view.puts},
             {"gets", view.gets},
             {"counted_since", timeOrNone(session->countsSince())},
             {"max_depth", queue.maxDepth},
             {"max_length", queue.maxMessageLength},
             {"default_priority", queue.defaultPriority},
             {"persistent", queue.defaultPersistence == BXPER_PERSISTENT},
             {"put_inhibited", queue.putInhibited},
             {"get_inhibited", queue.getInhibited},
             {"cluster", queue.cluster},
             {"created", localTime(queue.created)},
             {"altered", localTime(queue.altered)}},
            show.json);
  return 0;
}

// ---- delete, purge ------------------------------------------------------------------------------

struct Destruction {
  std::string manager, queue;
  bool force = false;
};

void declareDestruction(CLI::App& command, Destruction& destruction) {
  addWord(command, "QUEUE", destruction.queue, "Which one");
  addManagerOption(command, destruction.manager);
  addForceFlag(command, destruction.force);
}

/// The depth is looked up only to be asked about.
void expectConfirmed(const char* verb, const Destruction& destruction) {
  expectAnswer(destruction.force);
  if (destruction.force) return;
  const auto depth = findLocalQueue(destruction.manager, destruction.queue).depth;
  admin::expectConfirmed(
      fmt::format("{} queue {} with {}?", verb, destruction.queue, counted(depth, "message")));
}

int remove(const Destruction& deletion) {
  expectConfirmed("Delete", deletion);
  deleteLocalQueue(deletion.manager, deletion.queue);
  fmt::print("Queue {} deleted.\n", deletion.queue);
  return 0;
}

int purge(const Destruction& purge) {
  expectConfirmed("Purge", purge);
  std::uint64_t purged = 0;
  purgeMessages(*catalog().connect(purge.manager), purge.queue,
                [&](std::uint64_t count) { purged = count; });
  fmt::print("Queue {} purged of {}.\n", purge.queue, counted(purged, "message"));
  return 0;
}

} // namespace

void addQueueCommands(CLI::App& program) {
  CLI::App& family = *program.add_subcommand("queue", "Make, list, alter and empty queues");
  family.require_subcommand(1);
  addCommand(family, "create", "Make a queue", declareCreate, create);
  addCommand(family, "list", "List a manager's queues", declareList, list);
  addCommand(family, "show", "Tell about one", declareShow, show);
  addCommand(family, "alter", "Set limits and attributes, also of one in use", declareAlter, alter);
  addCommand(family, "delete", "Delete one with what is on it", declareDestruction, remove);
  addCommand(family, "purge", "Delete what is on it", declareDestruction, purge);
}

} // namespace bxm::admin
