#include "manager/store/log/home.h"

#include "manager/base/failure.h"
#include "manager/base/kill_point.h"
#include "manager/base/names.h"
#include "manager/base/random_number.h"
#include "manager/store/log/backup.h"
#include "manager/store/log/check.h"
#include "manager/store/log/repair.h"
#include "manager/store/log/waiting.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace bxm {

namespace {

namespace fs = std::filesystem;

constexpr const char* kFirstManager = "DEFAULT";
constexpr const char* kDefaultFile = "default";

constexpr const char* kMade = ".new";

/// Keeps two processes from making managers at once. Released with the process.
class HomeLock {
public:
  explicit HomeLock(const Folder& home) : m_file(home.open(".lock", Folder::Access::kMake)) {
    Patience patience("another process to make or delete a queue manager in " + home.path());
    while (::flock(m_file.get(), LOCK_EX | LOCK_NB) != 0) {
      if (errno != EWOULDBLOCK && errno != EINTR)
        failWithErrno(errno, BXRC_Q_MGR_NOT_AVAILABLE, "cannot lock " + home.pathOf(".lock"));
      patience.wait();
    }
  }
  HomeLock(const HomeLock&) = delete;
  HomeLock& operator=(const HomeLock&) = delete;

private:
  StopSignalsWait m_stopsWait;
  File m_file;
};

bool isReserved(std::string_view name) { return name == kDefaultFile || name == "bxclient.ini"; }

void writeNewManager(const Folder& folder) {
  ManagerFile manager;
  do manager.storeId = randomNumber();
  while (manager.storeId == 0);
  manager.write(folder);
}

Failure unknownManager(std::string_view name) {
  return Failure(BXRC_Q_MGR_NAME_ERROR, "there is no queue manager " + std::string(name));
}

} // namespace

// ---- Names --------------------------------------------------------------------------------------

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

std::optional<Folder> Home::folder() const {
  std::error_code error;
  const auto status = fs::status(m_folder, error);
  if (status.type() == fs::file_type::not_found) return std::nullopt;
  return Folder(m_folder);
}

Folder Home::folderOf(const std::string& name) const {
  const auto home = folder();
  const std::string inner = encodeFolderName(name);
  if (!home || !isName(name) || !home->has(inner)) throw unknownManager(name);
  return {*home, inner};
}

// ---- The default manager ------------------------------------------------------------------------

std::string Home::markedName() const {
  const auto home = folder();
  const std::string text = home ? home->read(kDefaultFile) : "";
  const std::string name = text.substr(0, text.find('\n'));
  return isName(name) ? name : "";
}

std::string Home::defaultName() {
  if (const std::string name = markedName(); !name.empty() && folder()->has(encodeFolderName(name)))
    return name;
  makeHome();
  const Folder home(m_folder);
  const HomeLock lock(home);
  const std::string marked = markedName();
  if (!list().empty()) {
    if (marked.empty()) throw Failure(BXRC_Q_MGR_NAME_ERROR, "no queue manager is the default one");
    return marked;
  }
  // Marked before it is made: who dies in between leaves nothing that the next cannot make good.
  markDefault(home, kFirstManager);
  BXM_KILL_POINT("manager-marked");
  build(home, kFirstManager, writeNewManager);
  return kFirstManager;
}

void Home::markDefault(const Folder& home, const std::string& name) {
  home.replace(kDefaultFile, name + "\n");
}

// ---- Connecting ---------------------------------------------------------------------------------

std::shared_ptr<LogStore> Home::open(const std::string& name) {
  Folder folder = folderOf(name);
  const std::lock_guard guard(m_mutex);
  OpenStore& known = m_open[name];
  if (auto store = known.store.lock(); store && store->runtime().isInPlace())
    return m_latest = store;
  m_latest.reset(); // a manager made anew under the old one's name
  known.awaitClosed();
  return m_latest = known.open(name, std::move(folder));
}

std::shared_ptr<LogStore> Home::OpenStore::open(const std::string& name, Folder folder) {
  const auto closing = std::make_shared<std::atomic<bool>>(false);
  const std::shared_ptr<LogStore> opened(new LogStore(name, std::move(folder)),
                                         [closing](LogStore* last) {
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
  for (;;) {
    const auto store = open(name);
    auto session = store->connect();
    // Else it was deleted or repaired while we connected.
    if (store->runtime().isInPlace()) return session;
  }
}

// ---- Administration -----------------------------------------------------------------------------

/// Never writable for others, whatever the program's mask.
void Home::makeHome() const {
  std::error_code error;
  std::vector<fs::path> missing;
  for (fs::path path = fs::absolute(m_folder).lexically_normal();
       !path.empty() && !fs::exists(path, error) && path != path.root_path();
       path = path.parent_path())
    if (path.has_filename()) missing.push_back(path);
  for (; !missing.empty(); missing.pop_back()) {
    const fs::path& path = missing.back();
    if (::mkdir(path.c_str(), missing.size() == 1 ? 0770 : 0755) != 0 && errno != EEXIST)
      failWithErrno(errno, BXRC_Q_MGR_NOT_AVAILABLE, "cannot make the folder " + path.string());
    // A power cut must not take it away; a folder that we may not read nobody here can sync.
    if (const fs::path parent = path.parent_path(); ::access(parent.c_str(), R_OK) == 0)
      Folder(parent).sync();
  }
}

/// Makes a manager under another name and renames it, so that nobody finds half of one.
void Home::build(const Folder& home, const std::string& name,
                 const std::function<void(const Folder& made)>& fill) {
  home.removeTree(kMade);
  Folder::make(home, kMade);
  fill({home, kMade});
  BXM_KILL_POINT("manager-made");
  home.rename(kMade, encodeFolderName(name));
  home.sync();
}

void Home::create(const std::string& name, bool makeDefault, const std::string& place) {
  if (!place.empty())
    throw Failure(BXRC_OPTIONS_ERROR, "no place for a queue manager is known by '" + place + "'");
  if (!isName(name)) throw Failure(BXRC_Q_MGR_NAME_ERROR, notAName(name, "queue manager"));
  makeHome();
  const Folder home(m_folder);
  const HomeLock lock(home);
  if (home.has(encodeFolderName(name)))
    throw Failure(BXRC_OBJECT_EXISTS, "there is a queue manager " + name + " already");
  build(home, name, writeNewManager);
  if (makeDefault) markDefault(home, name);
}

bool Home::has(std::string_view name) {
  const std::string wanted = name.empty() ? markedName() : std::string(name);
  const auto home = folder();
  return home && isName(wanted) && home->has(encodeFolderName(wanted));
}

void Home::setDefault(const std::string& name) {
  if (name.empty()) {
    if (const auto home = folder()) home->remove(kDefaultFile);
    return;
  }
  folderOf(name); // must be there
  markDefault(Folder(m_folder), name);
}

void Home::letGo(const std::string& name) {
  const std::lock_guard guard(m_mutex);
  m_latest.reset();
  if (!m_open[name].store.expired())
    throw Failure(BXRC_OBJECT_IN_USE, name + " is in use by this program");
  m_open[name].awaitClosed();
}

void Home::remove(const std::string& name) {
  constexpr const char* kGone = ".deleted";
  folderOf(name);
  const Folder home(m_folder);
  const HomeLock lock(home);
  letGo(name);
  const std::string inner = encodeFolderName(name);
  if (Runtime::isInUse(folderOf(name))) throw Failure(BXRC_OBJECT_IN_USE, name + " is in use");
  home.removeTree(kGone);
  home.rename(inner, kGone);
  if (Runtime::isInUse(Folder(home, kGone))) { // somebody connected before the renaming
    home.rename(kGone, inner);
    throw Failure(BXRC_OBJECT_IN_USE, name + " is in use");
  }
  home.sync();
  home.removeTree(kGone);
  if (markedName() == name) home.remove(kDefaultFile);
}

void Home::grant(const std::string& name, const std::string& /*role*/, const std::string& /*may*/) {
  throw Failure(BXRC_OPTION_NOT_VALID_FOR_TYPE, "who may use queue manager " + name +
                                                    " is said by the modes of its folder, " +
                                                    folderOf(name).path());
}

void Home::setSettings(const std::string& name, const ManagerSettings& settings) {
  open(name)->saveSettings(settings);
}

// ---- Maintenance --------------------------------------------------------------------------------

std::string Home::givenName(const std::string& name) const {
  const std::string wanted = name.empty() ? markedName() : name;
  if (wanted.empty()) throw Failure(BXRC_Q_MGR_NAME_ERROR, "no queue manager is the default one");
  return wanted;
}

Catalog::Findings Home::check(const std::string& given) {
  const std::string name = givenName(given);
  const Folder manager = folderOf(name);
  letGo(name);
  Checked checked = checkFiles(manager);
  if (!checked.managerDamaged && Runtime::isKept(manager, checked.manager.storeId))
    checkIndex(*open(name), checked);
  return checked.findings;
}

Catalog::Repair Home::repair(const std::string& name) {
  constexpr const char* kRepaired = ".repaired";
  folderOf(name);
  const Folder home(m_folder);
  const HomeLock lock(home);
  letGo(name);
  home.removeTree(kRepaired); // what is left of one that somebody died over
  Folder::make(home, kRepaired);
  const std::string inner = encodeFolderName(name);
  Repair repaired = repairStore(name, home.pathOf(inner), home.pathOf(kRepaired), [&] {
    home.exchange(inner, kRepaired);
    home.sync();
  });
  home.removeTree(kRepaired);
  if (!repaired.setAside.empty()) repaired.setAside = home.pathOf(inner) + "/" + repaired.setAside;
  return repaired;
}

namespace {

/// The folder that a path is in, and its name there.
std::pair<Folder, std::string> split(const std::string& path) {
  fs::path whole = fs::absolute(path).lexically_normal();
  if (!whole.has_filename()) whole = whole.parent_path();
  return {Folder(whole.parent_path().string()), whole.filename().string()};
}

} // namespace

std::vector<std::string> Home::backup(const std::string& given, const std::string& target) {
  const std::string name = givenName(given);
  const auto session = connect(name); // keeps it from being deleted
  const auto [parent, made] = split(target);
  if (parent.has(made)) throw Failure(BXRC_OBJECT_EXISTS, target + " exists already");
  const fs::path way = fs::canonical(parent.path()).lexically_relative(fs::canonical(m_folder));
  if (*way.begin() != "..") // it would look like a manager, or go with one
    throw Failure(BXRC_OPTIONS_ERROR, target + " is among the queue managers in " + m_folder);
  Folder::make(parent, made);
  try {
    const auto damages = backUpStore(*open(name), {parent, made});
    parent.sync();
    return damages;
  } catch (...) {
    parent.removeTree(made);
    throw;
  }
}

void Home::restore(const std::string& source, const std::string& name) {
  if (!isName(name)) throw Failure(BXRC_Q_MGR_NAME_ERROR, notAName(name, "queue manager"));
  const Folder from(source);
  if (Runtime::isInUse(from)) throw Failure(BXRC_OBJECT_IN_USE, source + " is in use");
  makeHome();
  const Folder home(m_folder);
  const HomeLock lock(home);
  if (home.has(encodeFolderName(name)))
    throw Failure(BXRC_OBJECT_EXISTS, "there is a queue manager " + name + " already");
  build(home, name, [&from](const Folder& made) { copyBackup(from, made); });
}

// ---- The list -----------------------------------------------------------------------------------

std::vector<Catalog::Entry> Home::list() {
  std::vector<Entry> managers;
  const auto home = folder();
  if (!home) return managers;
  const std::string marked = markedName();
  for (const std::string& name : home->list()) {
    std::error_code error;
    if (name.starts_with('.') || !fs::is_directory(home->pathOf(name), error)) continue;
    const bool mayLook = ::access(home->pathOf(name).c_str(), X_OK) == 0;
    if (!mayLook || !ManagerFile::isIn({*home, name})) continue;
    const std::string decoded = decodeFolderName(name);
    managers.push_back({decoded, decoded == marked, home->pathOf(name)});
  }
  std::sort(managers.begin(), managers.end(),
            [](const Entry& a, const Entry& b) { return a.name < b.name; });
  return managers;
}

} // namespace bxm
