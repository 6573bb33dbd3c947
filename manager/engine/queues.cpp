#include "manager/engine/queues.h"

#include "manager/store/catalog.h"
#include "manager/store/failure.h"
#include "manager/store/names.h"

namespace bxm {

namespace {

BXLONG limitOf(BXLONG asked, BXLONG byDefault, BXLONG highest, const char* what) {
  if (asked < 0 || asked > highest)
    throw Failure(BXRC_INT_ATTRS_ERROR,
                  std::string(what) + " is from 1 to " + std::to_string(highest));
  return asked == 0 ? byDefault : asked;
}

} // namespace

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
