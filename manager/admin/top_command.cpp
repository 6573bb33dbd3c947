#include "manager/admin/commands.h"
#include "manager/admin/program.h"
#include "manager/admin/report.h"
#include "manager/admin/top_screen.h"
#include "manager/base/failure.h"
#include "manager/store/message.h"
#include "manager/view/manager_watch.h"

#include <cstdio>
#include <fmt/format.h>
#include <optional>
#include <thread>
#include <unistd.h>

namespace bxm::admin {

namespace {

using Clock = std::chrono::steady_clock;

struct Top {
  std::string manager;
  double interval = 1;
  std::uint64_t count = 0;
  bool json = false;
};

void declare(CLI::App& command, Top& top) {
  addManagerOption(command, top.manager);
  command
      .add_option("--interval", top.interval, "How many seconds between two looks, 0.1 to 86400")
      ->type_name("SECONDS")
      ->transform(decimal(0.1, 86400.0))
      ->capture_default_str();
  addCount(command, "--count", top.count, "How many looks; 0 goes on for ever")
      ->capture_default_str();
  command.add_flag("--json", top.json, "Print a JSON object a line for each queue");
}

Json lineOf(const QueueView& row) {
  Json json{{"time", utcTime(clockNow())}, {"queue", row.name}};
  json.update(jsonOf(row));
  return json;
}

void print(const std::vector<QueueView>& rows, bool json) {
  for (const QueueView& row : rows)
    if (json)
      fmt::print("{}\n", lineOf(row).dump());
    else
      fmt::print("{} {} depth {} of {}, {:.0f} put/s, {:.0f} get/s, {} readers, {} writers, {} "
                 "uncommitted, oldest {}{}{}\n",
                 utcTime(clockNow()), row.name, row.depth, row.maxDepth, row.putRate, row.getRate,
                 row.readers, row.writers, row.uncommitted,
                 row.oldestAge ? duration(*row.oldestAge) : "-", row.remark().empty() ? "" : ", ",
                 row.remark());
  if (std::fflush(stdout) != 0) throw std::runtime_error("cannot write to standard output");
}

/// Line by line what there is ends with the manager; on a screen it may come back.
int top(const Top& top) {
  ManagerWatch figures(top.manager);
  auto rows = figures.look();
  const bool onScreen = !top.json && ::isatty(STDIN_FILENO) == 1 && ::isatty(STDOUT_FILENO) == 1;
  const auto screen = onScreen ? TopScreen::open() : nullptr;
  auto next = Clock::now();
  std::optional<std::string> fault;
  for (std::uint64_t looks = 1;; ++looks) {
    if (!screen)
      print(rows, top.json);
    else if (fault)
      screen->showFault(*fault);
    else
      screen->show(figures.managerName(), rows);
    if (looks == top.count) return 0;
    next = std::max(next + std::chrono::duration_cast<Clock::duration>(
                               std::chrono::duration<double>(top.interval)),
                    Clock::now());
    if (screen && !screen->waitUntil(next)) return 0;
    std::this_thread::sleep_until(next);
    try {
      fault.reset();
      rows = figures.look();
    } catch (const Failure& failure) {
      if (!screen) throw;
      fault = failure.what();
    }
  }
}

} // namespace

void addTopCommand(CLI::App& program) {
  addCommand(program, "top",
             "Show what goes on with all queues of a manager: on the whole terminal, else line by "
             "line",
             declare, top);
}

} // namespace bxm::admin
