#include "manager/store/log/log_store.h"

#include "bx/bx.h"
#include "manager/base/bytes.h"
#include "manager/base/failure.h"
#include "manager/base/random_number.h"
#include "manager/store/log/log_session.h"
#include "manager/store/log/rebuild.h"

#include <charconv>
#include <sstream>

namespace bxm {

// ---- The manager's file -------------------------------------------------------------------------

namespace {

constexpr const char* kFirstFormat = "durable.mdb";
constexpr const char* kTitle = "queue manager";
constexpr const char* kEnd = "end of file\n";

std::string hexadecimal(std::uint64_t number) {
  char text[16];
  const auto end = std::to_chars(text, text + sizeof text, number, 16).ptr;
  return {text, end};
}

std::string checksumOf(std::string_view text) { return hexadecimal(crc32c(text)); }

} // namespace

ManagerFile ManagerFile::read(const Folder& folder) {
  const std::string bytes = folder.read(kName);
  if (bytes.empty() && folder.has(kFirstFormat))
    throw Failure(BXRC_Q_MGR_NOT_AVAILABLE,
                  "the store in " + folder.path() +
                      " has format 1, which no release wrote; this program knows format " +
                      std::to_string(kFormat));
  if (bytes.empty())
    throw Failure(BXRC_Q_MGR_NOT_AVAILABLE, "there is no store in " + folder.path());
  std::istringstream lines(bytes);
  std::string line, word, value;
  std::map<std::string, std::string> said;
  const bool titled = std::getline(lines, line) && line == kTitle;
  while (lines >> word >> value) said[word] = value;
  ManagerFile file;
  const std::string& id = said["store"];
  const auto end = std::from_chars(id.data(), id.data() + id.size(), file.storeId, 16);
  if (titled && said.contains("format") && said["format"] != std::to_string(kFormat))
    throw Failure(BXRC_Q_MGR_NOT_AVAILABLE, "the store in " + folder.path() + " has format " +
                                                said["format"] + ", this program knows format " +
                                                std::to_string(kFormat));
  if (!titled || !said.contains("format") || end.ptr != id.data() + id.size() ||
      file.storeId == 0 || !bytes.ends_with(kEnd) ||
      said["checksum"] != checksumOf(bytes.substr(0, bytes.find("checksum "))))
    throw Failure(BXRC_Q_MGR_NOT_AVAILABLE, folder.pathOf(kName) + " is damaged");
  file.syncFull = said["sync"] == "full";
  file.commandServerStopped = said["command-server"] == "stopped";
  return file;
}

void ManagerFile::write(const Folder& folder) const {
  const std::string text = std::string(kTitle) + "\nformat " + std::to_string(kFormat) +
                           "\nstore " + hexadecimal(storeId) + "\nsync " +
                           (syncFull ? "full" : "batch") + "\ncommand-server " +
                           (commandServerStopped ? "stopped" : "running") + "\n";
  folder.replace(kName, text + "checksum " + checksumOf(text) + "\n" + kEnd);
}

bool ManagerFile::isOfOtherFormat(const std::string& text) {
  const std::string title = std::string(kTitle) + "\nformat ";
  return text.starts_with(title) && text.ends_with(kEnd) &&
         !text.starts_with(title + std::to_string(kFormat) + "\n");
}

bool ManagerFile::isIn(const Folder& folder) {
  return folder.has(kName) || folder.has(kFirstFormat);
}

// ---- The store ----------------------------------------------------------------------------------

LogStore::LogStore(std::string name, Folder folder)
    : m_name(std::move(name)), m_folder(std::move(folder)), m_manager(ManagerFile::read(m_folder)),
      m_runtime(m_folder, m_manager.storeId,
                [this](Runtime& runtime) {
                  LogFiles files(m_folder, runtime, m_manager.storeId);
                  QueueTable queues(m_folder, runtime);
                  rebuild(files, queues);
                }),
      m_files(m_folder, m_runtime, m_manager.storeId), m_queues(m_folder, m_runtime) {
  m_runtime.syncFull() = m_manager.syncFull;
  m_runtime.commandServerStopped() = m_manager.commandServerStopped;
}

std::unique_ptr<StoreSession> LogStore::connect() {
  auto session = std::make_unique<LogSession>(shared_from_this());
  session->recoverDead();
  return session;
}

std::shared_ptr<QueueShare> LogStore::share(std::uint32_t queueId) {
  {
    const std::lock_guard guard(m_sharesMutex);
    if (const auto found = m_shares.find(queueId);
        found != m_shares.end() && found->second->exists())
      return found->second;
  }
  for (std::uint32_t slot = 0; slot < m_runtime.queueLimit(); ++slot)
    if (m_runtime.queue(slot).holds(queueId)) return share(queueId, slot);
  return nullptr;
}

std::shared_ptr<QueueShare> LogStore::share(std::uint32_t queueId, std::uint32_t slot) {
  constexpr std::size_t kMostIdle = 16;
  const std::lock_guard guard(m_sharesMutex);
  if (const auto found = m_shares.find(queueId); found != m_shares.end()) return found->second;
  // Each holds descriptors: those that nobody uses make room, those of deleted queues at once.
  std::size_t idle = 0;
  std::erase_if(m_shares, [&idle](const auto& entry) {
    return entry.second.use_count() == 1 && (!entry.second->exists() || ++idle > kMostIdle);
  });
  return m_shares
      .emplace(queueId,
               std::make_shared<QueueShare>(m_folder, queueId, slot, m_runtime.queue(slot)))
      .first->second;
}

// ---- Settings -----------------------------------------------------------------------------------

void LogStore::saveManagerFile(bool syncFull, bool stopped) {
  ManagerFile file = m_manager;
  file.syncFull = syncFull;
  file.commandServerStopped = stopped;
  file.write(m_folder);
  m_runtime.syncFull() = syncFull;
  m_runtime.commandServerStopped() = stopped;
}

void LogStore::saveSettings(const ManagerSettings& settings) {
  saveManagerFile(settings.syncFull, m_runtime.commandServerStopped() != 0);
}

void LogStore::saveCommandServer(bool runs) { saveManagerFile(m_runtime.syncFull() != 0, !runs); }

} // namespace bxm
