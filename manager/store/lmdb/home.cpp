#include "manager/store/lmdb/home.h"

#include "manager/store/failure.h"
#include "manager/store/kill_point.h"
#include "manager/store/lmdb/first_line.h"
#include "manager/store/names.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace bxm {

namespace {

namespace fs = std::filesystem;

constexpr const char* kFirstManager = "DEFAULT";
constexpr const char* kDefaultFile = "default";

/// Keeps two processes from making managers at once. Released with the process.
class HomeLock {
public:
  explicit HomeLock(const std::string& folder) {
    const std::string file = folder + "/.lock";
    m_file = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0660);
    if (m_file < 0) failWithErrno(errno, BXRC_Q_MGR_NOT_AVAILABLE, "cannot open " + file);
    while (::flock(m_file, LOCK_EX) != 0)
      if (errno != EINTR) failWithErrno(errno, BXRC_Q_MGR_NOT_AVAILABLE, "cannot lock " + file);
  }
  ~HomeLock() { ::close(m_file); }
  HomeLock(const HomeLock&) = delete;
  HomeLock& operator=(const HomeLock&) = delete;

private:
  StopSignalsWait m_stopsWait;
  int m_file;
};

void syncPath(const std::string& path) {
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) failWithErrno(errno, BXRC_UNEXPECTED, "cannot open " + path);
  const int result = ::fsync(file);
  const int error = errno;
  ::close(file);
  if (result != 0) failWithErrno(error, BXRC_UNEXPECTED, "cannot sync " + path);
}

void renameOrFail(const std::string& from, const std::string& to) {
  if (::rename(from.c_str(), to.c_str()) != 0)
    failWithErrno(errno, BXRC_UNEXPECTED, "cannot rename " + from);
}

bool isReserved(std::string_view name) { return name == kDefaultFile || name == "bxclient.ini"; }

Failure unknownManager(std::string_view name) {
  return Failure(BXRC_Q_MGR_NAME_ERROR, "there is no queue manager " + std::string(name));
}

} // namespace

// ---- Names --------------------------------------------------------------------------------------

std::string defaultHomeFolder() {
  auto variable = [](const char* name) -> std::string {
    const char* value = std::getenv(name);
    return value ? value : "";
  };
  if (const std::string home = variable("BXM_HOME"); !home.empty()) return home;
  if (::geteuid() == 0) return "/var/lib/bxm";
  if (const std::string state = variable("XDG_STATE_HOME"); !state.empty()) return state + "/bxm";
  return variable("HOME") + "/.local/state/bxm";
}

std::string encodeFolderName(std::string_view name) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (std::size_t i = 0; i < name.size(); ++i) {
    const auto c = static_cast<unsigned char>(name[i]);
    if (c == '/' || c == '%' || (i == 0 && (c == '.' || isReserved(name)))) {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 15];
    } else {
      out += static_cast<char>(c);
    }
  }
  return out;
}

std::string decodeFolderName(std::string_view folder) {
  std::string out;
  for (std::size_t i = 0; i < folder.size(); ++i) {
    if (folder[i] == '%' && i + 2 < folder.size()) {
      out +=
          static_cast<char>(std::strtol(std::string(folder.substr(i + 1, 2)).c_str(), nullptr, 16));
      i += 2;
    } else {
      out += folder[i];
    }
  }
  return out;
}

std::string Home::folderOf(std::string_view name) const {
  return m_folder + "/" + encodeFolderName(name);
}

// ---- The default manager ------------------------------------------------------------------------

std::string Home::markedName() const {
  const std::string name = firstLine(m_folder + "/" + kDefaultFile);
  return isName(name) ? name : "";
}

std::string Home::defaultName() {
  if (const std::string name = markedName(); !name.empty() && fs::exists(folderOf(name)))
    return name;
  makeHome();
  const HomeLock lock(m_folder);
  const std::string marked = markedName();
  if (!list().empty()) {
    if (marked.empty()) throw Failure(BXRC_Q_MGR_NAME_ERROR, "no queue manager is the default one");
    return marked;
  }
  // Marked before it is made: who dies in between leaves nothing that the next cannot make good.
  markDefault(kFirstManager);
  BXM_KILL_POINT("manager-marked");
  build(kFirstManager);
  return kFirstManager;
}

void Home::markDefault(const std::string& name) {
  const std::string made = m_folder + "/.default";
  {
    std::ofstream out(made, std::ios::trunc);
    out << name << '\n';
    if (!out.flush()) throw Failure(BXRC_STORAGE_FULL, "cannot write " + made);
  }
  syncPath(made);
  renameOrFail(made, m_folder + "/" + kDefaultFile);
  syncPath(m_folder);
}

// ---- Connecting ---------------------------------------------------------------------------------

std::shared_ptr<LmdbStore> Home::open(const std::string& name) {
  const std::string folder = folderOf(name);
  struct stat status {};
  if (::stat(folder.c_str(), &status) != 0) {
    if (errno == ENOENT || errno == ENAMETOOLONG) throw unknownManager(name);
    failWithErrno(errno, BXRC_Q_MGR_NOT_AVAILABLE, "cannot open " + folder);
  }
  const std::lock_guard guard(m_mutex);
  if (m_latest && m_latest->durable().hasFailedCommit()) m_latest.reset();
  OpenStore& known = m_open[folder];
  if (auto store = known.store.lock(); store && store->runtime().isInPlace())
    return m_latest = store;
  m_latest.reset(); // a manager made anew under the old one's name
  known.awaitClosed();
  return m_latest = known.open(name, folder);
}

std::shared_ptr<LmdbStore> Home::OpenStore::open(const std::string& name,
                                                 const std::string& folder) {
  const auto closing = std::make_shared<std::atomic<bool>>(false);
  const std::shared_ptr<LmdbStore> opened(new LmdbStore(name, folder), [closing](LmdbStore* last) {
    delete last;
    *closing = true;
    closing->notify_all();
  });
  store = opened;
  closed = closing;
  return opened;
}

// A process's file locks end with the first of its descriptors that is closed: the old object would
// take those of the new one away.
void Home::OpenStore::awaitClosed() const {
  if (closed && store.expired()) closed->wait(false);
}

std::unique_ptr<StoreSession> Home::connect(std::string_view wanted) {
  const std::string name = wanted.empty() ? defaultName() : std::string(wanted);
  if (!isName(name)) throw unknownManager(name);
  const auto store = open(name);
  auto session = store->connect();
  if (!store->runtime().isInPlace()) throw unknownManager(name); // deleted while we connected
  return session;
}

// ---- Administration -----------------------------------------------------------------------------

void Home::makeHome() {
  std::error_code error;
  std::vector<fs::path> parents; // of what is made, to be synced: a power cut must not take it away
  for (fs::path path = m_folder; !path.empty() && !fs::exists(path, error);
       path = path.parent_path())
    parents.push_back(path.has_parent_path() ? path.parent_path() : ".");
  fs::create_directories(m_folder, error);
  if (error)
    failWithErrno(error.value(), BXRC_Q_MGR_NOT_AVAILABLE, "cannot make the folder " + m_folder);
  for (const fs::path& parent : parents)
    if (::access(parent.c_str(), R_OK) == 0) syncPath(parent);
}

/// Makes a manager under another name and renames it, so that nobody finds half of one.
void Home::build(const std::string& name) {
  const std::string made = m_folder + "/.new";
  std::error_code error;
  fs::remove_all(made, error);
  if (::mkdir(made.c_str(), 0770) != 0)
    failWithErrno(errno, BXRC_Q_MGR_NOT_AVAILABLE, "cannot make the folder " + made);
  { const Durable complete(made, Durable::Open::kCreate); }
  BXM_KILL_POINT("manager-made");
  renameOrFail(made, folderOf(name));
  syncPath(m_folder);
}

void Home::create(const std::string& name, bool makeDefault) {
  if (!isName(name))
    throw Failure(BXRC_Q_MGR_NAME_ERROR, "'" + name + "' is no name for a queue manager");
  makeHome();
  const HomeLock lock(m_folder);
  if (fs::exists(folderOf(name)))
    throw Failure(BXRC_OBJECT_EXISTS, "there is a queue manager " + name + " already");
  build(name);
  if (makeDefault) markDefault(name);
}

void Home::remove(const std::string& name) {
  const std::string folder = folderOf(name), gone = m_folder + "/.deleted";
  if (!isName(name) || !fs::exists(folder)) throw unknownManager(name);
  const HomeLock lock(m_folder);
  {
    const std::lock_guard guard(m_mutex);
    m_latest.reset();
    if (!m_open[folder].store.expired())
      throw Failure(BXRC_OBJECT_IN_USE, name + " is in use by this program");
    m_open[folder].awaitClosed();
  }
  if (Runtime::isInUse(folder)) throw Failure(BXRC_OBJECT_IN_USE, name + " is in use");
  std::error_code error;
  fs::remove_all(gone, error);
  renameOrFail(folder, gone);
  if (Runtime::isInUse(gone)) { // somebody connected between the look and the renaming
    renameOrFail(gone, folder);
    throw Failure(BXRC_OBJECT_IN_USE, name + " is in use");
  }
  syncPath(m_folder);
  fs::remove_all(gone, error);
  if (error) failWithErrno(error.value(), BXRC_UNEXPECTED, "cannot delete " + gone);
  if (markedName() == name) fs::remove(m_folder + "/" + kDefaultFile, error);
}

void Home::setSettings(const std::string& name, const ManagerSettings& settings) {
  if (!isName(name)) throw unknownManager(name);
  const auto store = open(name);
  WriteTransaction txn(store->durable());
  writeSetting(txn.get(), store->durable(), kSettingSync, settings.syncFull ? "full" : "batch");
  txn.commit();
}

std::vector<Catalog::Entry> Home::list() {
  std::vector<Entry> managers;
  const std::string marked = markedName();
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(m_folder, error)) {
    const std::string name = entry.path().filename().string();
    if (name.starts_with('.') || !fs::exists(entry.path() / "durable.mdb")) continue;
    const std::string decoded = decodeFolderName(name);
    managers.push_back({decoded, decoded == marked});
  }
  if (error && error != std::errc::no_such_file_or_directory)
    failWithErrno(error.value(), BXRC_Q_MGR_NOT_AVAILABLE, "cannot read " + m_folder);
  std::sort(managers.begin(), managers.end(),
            [](const Entry& a, const Entry& b) { return a.name < b.name; });
  return managers;
}

} // namespace bxm
