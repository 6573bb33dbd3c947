#include "manager/engine/administration.h"

#include "manager/base/failure.h"
#include "manager/base/names.h"
#include "manager/engine/transfer.h"

namespace bxm {

namespace {

void set(BXLONG& value, std::optional<BXLONG> asked, BXLONG lowest, BXLONG highest,
         const char* what) {
  if (!asked) return;
  if (*asked < lowest || *asked > highest)
    throw Failure(BXRC_INT_ATTRS_ERROR, std::string(what) + " is from " + std::to_string(lowest) +
                                            " to " + std::to_string(highest));
  value = *asked;
}

void apply(const QueueSettings& settings, QueueDefinition& queue) {
  set(queue.maxDepth, settings.maxDepth, 0, kMaxDepthLimit, "the maximum depth");
  set(queue.maxMessageLength, settings.maxMessageLength, 1, kMessageLengthLimit,
      "the maximum length");
  set(queue.defaultPriority, settings.defaultPriority, 0, BXPRI_MAXIMUM, "the default priority");
  if (settings.persistent)
    queue.defaultPersistence = *settings.persistent ? BXPER_PERSISTENT : BXPER_NOT_PERSISTENT;
  queue.putInhibited = settings.putInhibited.value_or(queue.putInhibited);
  queue.getInhibited = settings.getInhibited.value_or(queue.getInhibited);
}

[[noreturn]] void failUnknownQueue(const std::string& name) {
  throw Failure(BXRC_UNKNOWN_OBJECT, "there is no queue " + name);
}

} // namespace

void createManager(const std::string& name, bool makeDefault, const std::string& place) {
  catalog().create(name, makeDefault, place);
}

void deleteManager(const std::string& name) { catalog().remove(name); }

std::vector<ManagerInfo> listManagers() { return catalog().list(); }

ManagerInfo findManager(const std::string& name) {
  const std::string found = name.empty() ? catalog().connect(name)->managerName() : name;
  for (const ManagerInfo& manager : listManagers())
    if (manager.name == found) return manager;
  throw Failure(BXRC_Q_MGR_NAME_ERROR, "there is no queue manager " + name);
}

void setDefaultManager(const std::string& name) { catalog().setDefault(name); }

void switchCommandServer(const std::string& name, bool runs) {
  catalog().connect(name)->setCommandServer(runs);
}

bool commandServerRuns(const std::string& name) {
  return catalog().connect(name)->commandServerRuns();
}

void setManagerSync(const std::string& name, bool full) { catalog().setSettings(name, {full}); }

ManagerSettings managerSettings(const std::string& name) {
  return catalog().connect(name)->settings();
}

void grantAccess(const std::string& name, const std::string& role, const std::string& may) {
  catalog().grant(name, role, may);
}

ManagerFindings checkManager(const std::string& name) { return catalog().check(name); }

ManagerRepair repairManager(const std::string& name) { return catalog().repair(name); }

std::vector<std::string> backUpManager(const std::string& name, const std::string& target) {
  return catalog().backup(name, target);
}

void restoreManager(const std::string& source, const std::string& name) {
  catalog().restore(source, name);
}

void createLocalQueue(const std::string& manager, const std::string& name,
                      const QueueSettings& settings) {
  if (!isName(name)) throw Failure(BXRC_UNKNOWN_OBJECT, notAName(name, "queue"));
  QueueDefinition definition;
  definition.name = name;
  apply(settings, definition);
  if (!catalog().connect(manager)->createQueue(definition))
    throw Failure(BXRC_OBJECT_EXISTS, "there is a queue " + name + " already");
}

void alterLocalQueue(const std::string& manager, const std::string& name,
                     const QueueSettings& settings) {
  const auto session = catalog().connect(manager);
  QueueDefinition definition = queueNamed(*session, name);
  apply(settings, definition);
  if (!session->alterQueue(definition)) failUnknownQueue(name);
}

void deleteLocalQueue(const std::string& manager, const std::string& name) {
  if (catalog().connect(manager)->deleteQueue(name, true) == StoreSession::Deleted::kUnknownQueue)
    failUnknownQueue(name);
}

QueueInfo findLocalQueue(const std::string& manager, const std::string& name) {
  const auto session = catalog().connect(manager);
  const QueueDefinition queue = queueNamed(*session, name);
  return {queue, session->open(queue)->depth()};
}

std::vector<QueueInfo> listLocalQueues(const std::string& manager) {
  const auto session = catalog().connect(manager);
  std::vector<QueueInfo> queues;
  for (const QueueDefinition& queue : session->listQueues())
    queues.push_back({queue, session->open(queue)->depth()});
  return queues;
}

} // namespace bxm
