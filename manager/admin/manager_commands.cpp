#include "manager/admin/commands.h"
#include "manager/admin/program.h"
#include "manager/admin/report.h"
#include "manager/base/failure.h"
#include "manager/engine/administration.h"
#include "manager/engine/copying.h"

#include <cstdio>
#include <fmt/format.h>

namespace bxm::admin {

namespace {

// ---- create, delete -----------------------------------------------------------------------------

struct Create {
  std::string name, store;
  bool makeDefault = false;
};

void declareCreate(CLI::App& command, Create& create) {
  addWord(command, "NAME", create.name, "1 to 48 characters of A-Z a-z 0-9 . _ / %");
  command.add_flag("--default", create.makeDefault, "Make it the default one");
  command
      .add_option("--store", create.store,
                  "In which database: postgresql://...; without it in the folder of BXM_HOME")
      ->type_name("URI")
      ->check([](const std::string& uri) {
        return uri.empty() ? std::string("it takes postgresql://...") : std::string();
      });
}

int create(const Create& create) {
  createManager(create.name, create.makeDefault, create.store);
  fmt::print("Queue manager {} created.\n", create.name);
  return 0;
}

struct Delete {
  std::string manager;
  bool force = false;
};

void declareDelete(CLI::App& command, Delete& deletion) {
  addWord(command, "MANAGER", deletion.manager, "Which one; nobody may use it meanwhile");
  addForceFlag(command, deletion.force);
}

int remove(const Delete& deletion) {
  expectAnswer(deletion.force);
  if (!deletion.force)
    expectConfirmed("Delete queue manager " + deletion.manager + " with all its queues?");
  deleteManager(deletion.manager);
  fmt::print("Queue manager {} deleted.\n", deletion.manager);
  return 0;
}

// ---- list, show ---------------------------------------------------------------------------------

const char* kindOf(const ManagerInfo& manager) {
  return manager.place.starts_with("/") ? "embedded" : "postgresql";
}

struct List {
  bool json = false;
};

void declareList(CLI::App& command, List& list) { addJsonFlag(command, list.json); }

int list(const List& list) {
  Json rows = Json::array();
  for (const ManagerInfo& manager : listManagers())
    rows.push_back({{"name", manager.name},
                    {"default", manager.isDefault},
                    {"kind", kindOf(manager)},
                    {"place", manager.place}});
  reportRows(rows, list.json);
  return 0;
}

struct Show {
  std::string manager;
  bool json = false;
};

void declareShow(CLI::App& command, Show& show) {
  addWord(command, "MANAGER", show.manager, "Another one than the default", true);
  addJsonFlag(command, show.json);
}

int show(const Show& show) {
  const ManagerInfo manager = findManager(show.manager);
  const auto queues = listLocalQueues(manager.name);
  std::uint64_t messages = 0;
  for (const QueueInfo& queue : queues) messages += queue.depth;
  reportOne({{"name", manager.name},
             {"default", manager.isDefault},
             {"kind", kindOf(manager)},
             {"place", manager.place},
             {"sync", managerSettings(manager.name).syncFull ? "full" : "batch"},
             {"command_server", commandServerRuns(manager.name) ? "running" : "stopped"},
             {"queues", queues.size()},
             {"messages", messages}},
            show.json);
  return 0;
}

// ---- alter, default, grant, copy ----------------------------------------------------------------

struct Alter {
  std::string manager, sync;
};

void declareAlter(CLI::App& command, Alter& alter) {
  addWord(command, "MANAGER", alter.manager, "Which one");
  addChoice(command, "--sync", {"full", "batch"}, alter.sync,
            "Whether commits of gets wait for the disk (full), or are written in batches")
      ->required();
}

int alter(const Alter& alter) {
  setManagerSync(alter.manager, alter.sync == "full");
  fmt::print("Queue manager {} altered: sync {}.\n", alter.manager, alter.sync);
  return 0;
}

struct Default {
  std::string manager;
  bool json = false;
};

void declareDefault(CLI::App& command, Default& choice) {
  addJsonFlag(command, choice.json);
  addWord(command, "MANAGER", choice.manager, "Which one it is to be from now on", true)
      ->excludes(command.get_option("--json"));
}

int makeDefault(const Default& choice) {
  if (!choice.manager.empty()) {
    setDefaultManager(choice.manager);
    fmt::print("Queue manager {} is the default now.\n", choice.manager);
    return 0;
  }
  for (const ManagerInfo& manager : listManagers())
    if (manager.isDefault) {
      if (choice.json)
        reportOne({{"name", manager.name}}, true);
      else
        fmt::print("{}\n", manager.name);
      return 0;
    }
  throw Failure(BXRC_Q_MGR_NAME_ERROR, "there is no default queue manager");
}

struct Grant {
  std::string manager, role, right;
};

void declareGrant(CLI::App& command, Grant& grant) {
  addWord(command, "MANAGER", grant.manager, "One in a database");
  addWord(command, "ROLE", grant.role, "A role of the database");
  addChoice(command, "--to", {"put", "get", "browse", "admin", "none"}, grant.right,
            "What it may do besides; none takes everything back")
      ->required();
}

int grant(const Grant& grant) {
  grantAccess(grant.manager, grant.role, grant.right);
  fmt::print("Role {} of queue manager {}: {}.\n", grant.role, grant.manager, grant.right);
  return 0;
}

struct Copy {
  std::string from, to;
};

void declareCopy(CLI::App& command, Copy& copy) {
  addWord(command, "FROM", copy.from, "The manager that is copied, and stays as it is")
      ->type_name("MANAGER");
  addWord(command, "TO", copy.to, "The one that gets its queues")->type_name("MANAGER");
}

int copy(const Copy& copy) {
  std::size_t queues = 0;
  std::uint64_t messages = 0;
  copyManager(copy.from, copy.to, [&](const CopiedQueue& copied) {
    ++queues;
    messages += copied.messages;
    fmt::print("Queue {}: {} copied, verified.\n", copied.name,
               counted(copied.messages, "message"));
    std::fflush(stdout);
  });
  fmt::print("Queue manager {} copied to {}: {}, {}.\n", copy.from, copy.to,
             counted(queues, "queue"), counted(messages, "message"));
  return 0;
}

} // namespace

void addManagerCommands(CLI::App& program) {
  CLI::App& family = *program.add_subcommand("manager", "Make, list and alter queue managers");
  family.require_subcommand(1);
  addCommand(family, "create", "Make a queue manager", declareCreate, create);
  addCommand(family, "list", "List those that can be reached", declareList, list);
  addCommand(family, "show", "Tell about one", declareShow, show);
  addCommand(family, "alter", "Set how durable reading is", declareAlter, alter);
  addCommand(family, "delete", "Delete one with all its queues", declareDelete, remove);
  addCommand(family, "default", "Tell or set which one is meant where none is named",
             declareDefault, makeDefault);
  addCommand(family, "grant", "Let a role of the database use a manager", declareGrant, grant);
  addCommand(family, "copy", "Copy all queues of one manager into another", declareCopy, copy);
}

} // namespace bxm::admin
