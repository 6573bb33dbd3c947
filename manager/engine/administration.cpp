#include "manager/engine/administration.h"

#include "manager/base/failure.h"
#include "manager/base/names.h"

namespace bxm {

namespace {

BXLONG limitOf(BXLONG asked, BXLONG byDefault, BXLONG highest, const char* what) {
  if (asked < 0 || asked > highest)
    throw Failure(BXRC_INT_ATTRS_ERROR,
                  std::string(what) + " is from 1 to " + std::to_string(highest));
  return asked == 0 ? byDefault : asked;
}

} // namespace

void createManager(const std::string& name, bool makeDefault, const std::string& place) {
  catalog().create(name, makeDefault, place);
}

void deleteManager(const std::string& name) { catalog().remove(name); }

std::vector<ManagerInfo> listManagers() {
  std::vector<ManagerInfo> managers;
  for (const Catalog::Entry& entry : catalog().list())
    managers.push_back({entry.name, entry.isDefault});
  return managers;
}

void switchCommandServer(const std::string& name, bool runs) {
  catalog().connect(name)->setCommandServer(runs);
}

void setManagerSync(const std::string& name, bool full) { catalog().setSettings(name, {full}); }

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

void createLocalQueue(const std::string& manager, const QueueInfo& queue) {
  if (!isName(queue.name))
    throw Failure(BXRC_UNKNOWN_OBJECT, "'" + queue.name + "' is no name for a queue");
  QueueDefinition definition;
  definition.name = queue.name;
  definition.maxDepth =
      limitOf(queue.maxDepth, kDefaultMaxDepth, kMaxDepthLimit, "the maximum depth");
  definition.maxMessageLength = limitOf(queue.maxMessageLength, kDefaultMessageLength,
                                        kMessageLengthLimit, "the maximum length");
  if (!catalog().connect(manager)->createQueue(definition))
    throw Failure(BXRC_OBJECT_EXISTS, "there is a queue " + queue.name + " already");
}

void deleteLocalQueue(const std::string& manager, const std::string& name) {
  if (catalog().connect(manager)->deleteQueue(name, true) == StoreSession::Deleted::kUnknownQueue)
    throw Failure(BXRC_UNKNOWN_OBJECT, "there is no queue " + name);
}

std::vector<QueueInfo> listLocalQueues(const std::string& manager) {
  const auto session = catalog().connect(manager);
  std::vector<QueueInfo> queues;
  for (const QueueDefinition& queue : session->listQueues())
    queues.push_back(
        {queue.name, queue.maxDepth, queue.maxMessageLength, session->open(queue)->depth()});
  return queues;
}

} // namespace bxm
