#pragma once

#include "manager/store/log/folder.h"
#include "manager/store/log/runtime.h"
#include "manager/store/queue_definition.h"

#include <functional>
#include <optional>
#include <string_view>
#include <vector>

namespace bxm {

/// The queues of a manager. Each has a file, queue-<id>, that survives a power cut, and a slot of
/// the runtime in which is decided what exists: a queue is made by the step of its slot's state to
/// live, and deleted by the one to deleted, and only then the files follow. A process that is
/// stopped in between holds nobody up: whoever wants the name for himself waits a moment and then
/// undoes what the other has not decided yet. Thread-safe.
class QueueTable {
public:
  QueueTable(const Folder& folder, Runtime& runtime) : m_folder(folder), m_runtime(runtime) {}

  std::optional<QueueDefinition> find(std::string_view name) const;
  /// The queue that a slot is of now; nullopt when it is of none.
  std::optional<QueueDefinition> at(std::uint32_t slot) const { return read(slot); }
  std::vector<QueueDefinition> list() const;

  /// Assigns id and slot. False when the name exists. On the disk when it returns.
  bool create(QueueDefinition& definition, std::uint32_t connection);
  /// False when the queue has been deleted. On the disk when it returns. Of two who alter the same
  /// queue at once the later one's attributes count.
  bool alter(QueueDefinition& definition);
  /// True when the queue is deleted, on the disk. False, where it must be empty, when it is not.
  bool remove(const QueueDefinition& definition, bool purge, std::uint32_t connection);
  /// A queue that somebody is about to delete since it is empty gets a message: it lives on, at the
  /// latest after a moment.
  void keepAlive(std::uint32_t slot, std::uint32_t id);

  /// All that a dead connection was about to make or delete is finished or undone.
  void recover(std::uint32_t connection);

  /// After a boot: reads the files of all queues into the runtime. used says of which there are
  /// messages. Throws Failure 2059 when one is damaged: what is on the queue must not be lost.
  void load(const std::function<bool(std::uint32_t id)>& used);

  /// Puts less gets of all connections.
  static std::uint64_t depthOf(const Runtime& runtime, std::uint32_t slot, std::uint32_t id);

  static std::string fileName(std::uint32_t id) { return "queue-" + std::to_string(id); }
  static std::string encodeFile(const QueueDefinition& definition);
  /// nullopt when neither of its two copies is whole and of that queue.
  static std::optional<QueueDefinition> decodeFile(std::string_view bytes, std::uint32_t id);
  /// The id in the name of a queue's file; nullopt of another's.
  static std::optional<std::uint32_t> idIn(const std::string& name);

private:
  std::optional<QueueDefinition> read(std::uint32_t slot) const;
  std::optional<std::uint32_t> slotOf(std::string_view name) const;
  std::uint32_t claimSlot(QueueDefinition& definition, std::uint32_t connection) const;
  static void fill(QueueSlot& slot, const QueueDefinition& definition);
  void store(const QueueDefinition& definition) const;
  bool contest(std::uint32_t slot, const QueueDefinition& definition);
  void clearName(std::string_view name, std::uint32_t besides);
  void finish(std::uint32_t slot);
  bool step(std::uint32_t slot, QueueState from, QueueState to) const;

  const Folder& m_folder;
  Runtime& m_runtime;
};

} // namespace bxm
