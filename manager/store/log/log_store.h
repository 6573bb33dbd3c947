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

/// The embedded store: one manager in one folder, used by any number of processes at once.
///
/// Its words, and where each is defined. On the disk, see docs/storage-format.md:
///
///   log file     log-<n>: what connections have committed, appended to by its *owner* (format.h)
///   generation   one use of a log file; files are used again (format.h)
///   record       one append: what one commit took and put, or a *piece* of it where it spans
///                several files; the last piece makes all of them count (format.h)
///   item         a message in a record: a header and the message's stored form (message.h)
///   take         what a record says of messages that were got: they are gone (format.h)
///   seal         up to where a file is known to be on the disk (format.h)
///   number       of a commit: the order of all commits of a manager (runtime.h)
///   place        file and offset of an item or a record, 48 bits (format.h)
///   copy         an item that was moved from its *origin*, to free that one's file (format.h)
///
/// In shared memory, made anew at a boot:
///
///   runtime      tables of *slots* for connections, accesses, queues and log files (runtime.h)
///   connection   a slot that its process holds a lock on while it lives (runtime.h)
///   access       what one connection has put to and got from one queue (runtime.h)
///   index        of a queue: for each priority an array of *entries*, a word for each message: its
///                state and place (queue_index.h)
///   position     priority and *sequence*, an entry's number (queue_index.h)
///   floor        below it no message is available, so no scan looks (queue_index.h)
///   promise      room in an index for what a commit is about to enter (queue_index.h)
///   phase        how far a connection is with a commit, for who finds it dead (runtime.h)
///   live         how many messages of a log file are not gone; with none left it is freed
///                (log_files.h)
///
/// What is done with them:
///
///   publish      to enter the messages of a commit that is on the disk (publication.h)
///   claim        to take a message: one compare-and-swap on its entry (log_queue.h)
///   settle       to log what was got, many messages at once (settler.h)
///   reclaim      to free log files of which nothing is needed any more (reclaim.h)
///   recover      to finish or undo what a dead process was in the middle of (recovery.h)
///   rebuild      to make runtime and index from the logs, after a boot (rebuild.h)
///   survey       to read all logs and see which records count (log_survey.h)
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
  /// Calls visit(share, entry) for all entries of all queues; the share keeps them mapped.
  template <typename Visit>
  void forEachEntry(Visit visit) {
    for (const QueueDefinition& queue : m_queues.list())
      if (const auto its = share(queue.id, queue.slot))
        its->index.forEach([&](int, std::uint64_t, QueueIndex::Word& entry) { visit(its, entry); });
  }

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
