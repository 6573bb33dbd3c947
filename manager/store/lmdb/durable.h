#pragma once

#include "manager/store/catalog.h"
#include "manager/store/lmdb/stop_signals.h"
#include "manager/store/lmdb/unwritten_pages.h"
#include "manager/store/queue_definition.h"
#include "manager/store/store.h"

#include <atomic>
#include <cstdint>
#include <lmdb.h>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bxm {

/// The key of a message: queue id u32, 9 - priority u8, sequence u56, all big-endian, so that the
/// order of the keys is the order of the queues.
struct MessageKey {
  static constexpr std::size_t kSize = 12;
  static constexpr std::uint64_t kMaxSequence = (std::uint64_t{1} << 56) - 1;
  MessageKey(std::uint32_t queue, const Position& position);
  static std::uint32_t queueOf(const MDB_val& key);
  static Position positionOf(const MDB_val& key);
  MDB_val value() { return {kSize, m_bytes}; }

private:
  unsigned char m_bytes[kSize];
};

/// What is counted for each queue, in the same transactions as its messages.
struct QueueCounts {
  std::uint64_t depth = 0;
  std::uint64_t nextSequence = 1;
};

/// Throws the Failure for an LMDB error code.
[[noreturn]] void failWithLmdb(int error, const char* what);

/// The durable environment: definitions, messages, counts, settings. Thread-safe as LMDB is: one
/// write transaction at a time among all processes, readers never wait.
class Durable {
public:
  enum class Open { kExisting, kCreate };
  /// kCreate makes the files of a new manager in an empty folder and syncs them. Throws Failure:
  /// 2059 with the cause (no store, damaged, of a newer version), 2035 no permission.
  Durable(const std::string& folder, Open how);
  ~Durable();
  Durable(const Durable&) = delete;
  Durable& operator=(const Durable&) = delete;

  MDB_env* env() const { return m_env; }
  /// Random, made with the store; tells a store from another in its place.
  std::uint64_t storeId() const { return m_storeId; }
  std::uint64_t lastTransaction() const;

  /// A commit failed. If that was in its last step, the environment serves nothing any more: it is
  /// to be opened anew as soon as nobody uses it.
  void noteFailedCommit() const { m_failedCommit = true; }
  bool hasFailedCommit() const { return m_failedCommit; }

  /// Says that about so many bytes of the file were read through the map. From time to time the map
  /// lets go of its pages, which stay in the system's cache: whoever goes through a large store
  /// should not be seen to hold all of it.
  void passedThrough(std::size_t bytes) const noexcept;

  /// Frees what dead processes held.
  void clearStaleReaders() const;

  MDB_dbi settings = 0; ///< see kSetting*
  MDB_dbi queues = 0;   ///< name -> definition
  MDB_dbi counts = 0;   ///< queue id u32 BE -> QueueCounts
  MDB_dbi messages = 0; ///< MessageKey -> record

private:
  void openEnvironment(const std::string& folder);
  void checkLength() const;
  FileEnd fileEnd() const;
  void openTables(bool create);

  struct Mapping {
    void* address = nullptr;
    std::size_t size = 0;
  };
  static Mapping findMapping(const std::string& file);

  MDB_env* m_env = nullptr;
  std::uint64_t m_storeId = 0;
  std::string m_file;
  mutable std::atomic<std::size_t> m_passed{0};
  mutable std::mutex m_mappingMutex;
  mutable std::optional<Mapping> m_mapping; ///< sought when it is first needed: a start is short
  mutable std::atomic<bool> m_failedCommit{false};
};

/// A write transaction; aborts unless committed.
class WriteTransaction {
public:
  explicit WriteTransaction(const Durable& durable);
  ~WriteTransaction();
  WriteTransaction(const WriteTransaction&) = delete;
  WriteTransaction& operator=(const WriteTransaction&) = delete;
  void commit();
  MDB_txn* get() const { return m_txn; }

private:
  StopSignalsWait m_stopsWait; ///< others wait for the end of this
  const Durable& m_durable;
  MDB_txn* m_txn = nullptr;
};

/// A read transaction that is made once and used for many short snapshots, with a cursor over the
/// messages. One thread at a time.
class Reader {
public:
  explicit Reader(const Durable& durable) : m_durable(durable) {}
  ~Reader();
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  /// Holds a snapshot until it is destroyed.
  class Snapshot {
  public:
    explicit Snapshot(Reader& reader) : m_reader(reader) { m_reader.begin(); }
    ~Snapshot() { m_reader.end(); }
    Snapshot(const Snapshot&) = delete;
    Snapshot& operator=(const Snapshot&) = delete;
    /// Moves on to the newest state; false when this is it already.
    bool refresh();
    /// See Durable::passedThrough.
    void passedThrough(std::size_t bytes) const { m_reader.m_durable.passedThrough(bytes); }
    MDB_txn* txn() const { return m_reader.m_txn; }
    MDB_cursor* messages() const { return m_reader.m_cursor; }

  private:
    Reader& m_reader;
  };

private:
  void begin();
  void end();

  const Durable& m_durable;
  MDB_txn* m_txn = nullptr;
  MDB_cursor* m_cursor = nullptr;
};

/// Reads and writes of the small tables.
QueueCounts readCounts(MDB_txn* txn, const Durable& durable, std::uint32_t queue);
bool readCountsIfThere(MDB_txn* txn, const Durable& durable, std::uint32_t queue,
                       QueueCounts& counts);
void writeCounts(MDB_txn* txn, const Durable& durable, std::uint32_t queue,
                 const QueueCounts& counts);
std::optional<QueueDefinition> readDefinition(MDB_txn* txn, const Durable& durable,
                                              std::string_view name);
std::vector<QueueDefinition> readDefinitions(MDB_txn* txn, const Durable& durable);
/// Deleted queues whose messages are still to be deleted; of a definition, id and slot are filled.
std::vector<QueueDefinition> readPurges(MDB_txn* txn, const Durable& durable);
/// Deletes a queue's definition and counts and notes that its messages are to go.
void deleteDefinition(MDB_txn* txn, const Durable& durable, const QueueDefinition& queue);
void removePurge(MDB_txn* txn, const Durable& durable, std::uint32_t queue);
std::optional<std::string> readSetting(MDB_txn* txn, const Durable& durable, std::string_view key);
void writeSetting(MDB_txn* txn, const Durable& durable, std::string_view key,
                  std::string_view value);

constexpr std::string_view kSettingFormat = "format";                ///< u32 version
constexpr std::string_view kSettingStoreId = "store-id";             ///< u64
constexpr std::string_view kSettingNextQueue = "next-queue";         ///< u32, the next queue id
constexpr std::string_view kSettingCommandServer = "command-server"; ///< "running" or "stopped"
constexpr std::string_view kSettingSync = "sync";                    ///< "batch" or "full"
constexpr std::string_view kSettingPurgePrefix =
    "purge/"; ///< + queue id: slot u32 of a deleted queue

} // namespace bxm
