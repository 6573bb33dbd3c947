#pragma once

#include "manager/store/catalog.h"
#include "manager/store/log/log_files.h"
#include "manager/store/log/queue_index.h"
#include "manager/store/log/queue_table.h"
#include "manager/store/log/settler.h"

#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace bxm {

class LogSession;

/// What the file "manager" says: lines of text, each a word and its value.
struct ManagerFile {
  std::uint64_t storeId = 0;
  bool syncFull = false;
  bool commandServerStopped = false;

  static constexpr const char* kName = "manager";
  /// Throws Failure 2059: no store, one of another format, damaged.
  static ManagerFile read(const Folder& folder);
  void write(const Folder& folder) const;
  /// True when the text is whole, and of a format that this program does not know.
  static bool isOfOtherFormat(const std::string& text);
  /// True when a folder looks like a manager's, of any format.
  static bool isIn(const Folder& folder);
};

/// What all connections of this process share about one queue.
struct QueueShare {
  QueueShare(const Folder& folder, std::uint32_t queueId, std::uint32_t slotNumber,
             QueueSlot& queueSlot)
      : id(queueId), number(slotNumber), slot(queueSlot), index(folder, queueSlot, queueId) {}
  bool exists() const { return slot.holds(id); }

  const std::uint32_t id;
  const std::uint32_t number;
  QueueSlot& slot;
  QueueIndex index;
  /// When this process last looked whether others that use the queue have died, and from when on it
  /// may look for what has expired.
  std::atomic<std::int64_t> lookedAfter{0}, expiryScanDue{0};
};

/// One embedded manager as this process has it open. Thread-safe. The locks by which others know
/// that a connection lives end with the first descriptor of their file that a process closes, so
/// there is one object for each folder (see Home).
class LogStore : public std::enable_shared_from_this<LogStore> {
public:
  /// Throws Failure: 2059, 2035.
  LogStore(std::string name, Folder folder);

  std::unique_ptr<StoreSession> connect();

  const std::string& name() const { return m_name; }
  const Folder& folder() const { return m_folder; }
  Runtime& runtime() { return m_runtime; }
  LogFiles& files() { return m_files; }
  QueueTable& queues() { return m_queues; }
  Settler& settler() { return m_settler; }

  /// Null when there is no such queue any more.
  std::shared_ptr<QueueShare> share(std::uint32_t queueId);
  std::shared_ptr<QueueShare> share(std::uint32_t queueId, std::uint32_t slot);

  void saveSettings(const ManagerSettings& settings);
  void saveCommandServer(bool runs);

private:
  void saveManagerFile(bool syncFull, bool stopped);

  std::string m_name;
  Folder m_folder;
  const ManagerFile m_manager;
  Runtime m_runtime;
  LogFiles m_files;
  QueueTable m_queues;
  std::mutex m_sharesMutex;
  std::map<std::uint32_t, std::shared_ptr<QueueShare>> m_shares;
  Settler m_settler; ///< last: its thread uses the others
};

} // namespace bxm
