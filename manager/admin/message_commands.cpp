#include "manager/admin/commands.h"
#include "manager/admin/program.h"
#include "manager/admin/report.h"
#include "manager/engine/queue_walk.h"
#include "manager/engine/transfer.h"
#include "manager/store/catalog.h"
#include "manager/view/message_json.h"

#include <cstdio>
#include <fmt/format.h>

namespace bxm::admin {

namespace {

// ---- browse -------------------------------------------------------------------------------------

struct Browse {
  std::string manager, queue;
  std::uint64_t count = 20;
  bool json = false;
};

void declareBrowse(CLI::App& command, Browse& browse) {
  addWord(command, "QUEUE", browse.queue, "Which one");
  addCount(command, "-c,--count", browse.count, "How many at the most; 0 shows all")
      ->capture_default_str();
  addManagerOption(command, browse.manager);
  addJsonFlag(command, browse.json);
}

/// What a terminal shows of the data: its beginning.
std::string firstOf(std::string_view data) {
  constexpr std::size_t kMost = 40;
  std::string text(data.substr(0, std::min(kMost, data.find('\n'))));
  while (!text.empty() && data.size() > text.size() && !isUtf8(text)) text.pop_back(); // cut within
  if (!isUtf8(text)) return fmt::format("({} bytes)", data.size());
  return printable(text) + (data.size() > text.size() ? "..." : "");
}

constexpr const char* kLine = "{:<48}  {:>8}  {:>8}  {:>10}  {:>10}  {}\n";

int browse(const Browse& browse) {
  const auto session = catalog().connect(browse.manager);
  QueueWalk walk(*session, queueNamed(*session, browse.queue));
  std::uint64_t shown = 0;
  while ((browse.count == 0 || shown < browse.count) && walk.next()) {
    const std::int64_t now = session->now(), expiry = messageExpiry(walk.stored());
    const std::int64_t age = now - messagePutTime(walk.stored());
    const std::string_view data = messageData(walk.stored());
    if (browse.json) {
      Json json = jsonOf(walk.priority(), walk.stored());
      json["age_ms"] = age;
      json["size"] = data.size();
      fmt::print("{}\n", json.dump());
    } else {
      if (shown == 0) fmt::print(kLine, "ID", "PRIORITY", "AGE", "SIZE", "EXPIRES", "DATA");
      fmt::print(kLine, identifierOf(walk.stored()), walk.priority(), duration(age), data.size(),
                 expiry ? "in " + duration(expiry - now) : "-", firstOf(data));
    }
    ++shown;
  }
  return 0;
}

// ---- move ---------------------------------------------------------------------------------------

struct Move {
  std::string manager, from, to;
  Selection selection;
};

void declareMove(CLI::App& command, Move& move) {
  addWord(command, "QUEUE", move.from, "The queue whose messages are moved");
  addWord(command, "TO", move.to, "The queue that they are moved to the end of")
      ->type_name("QUEUE");
  addCount(command, "--count", move.selection.count, "How many at the most");
  command
      .add_option("--matching", move.selection.text, "Only those whose data has this text in it")
      ->type_name("TEXT");
  addManagerOption(command, move.manager);
}

int move(const Move& move) {
  std::uint64_t moved = 0;
  const auto tell = [&] {
    fmt::print("{} moved from {} to {}.\n", counted(moved, "message"), move.from, move.to);
  };
  try {
    moveMessages(*catalog().connect(move.manager), move.from, move.to, move.selection,
                 [&](std::uint64_t count) { moved = count; });
  } catch (...) {
    if (moved > 0) tell();
    throw;
  }
  tell();
  return 0;
}

} // namespace

void addMessageCommands(CLI::App& program) {
  addCommand(program, "browse", "Show the messages at the head of a queue", declareBrowse, browse);
  addCommand(program, "move", "Move messages from one queue to another; none is lost or doubled",
             declareMove, move);
}

} // namespace bxm::admin
