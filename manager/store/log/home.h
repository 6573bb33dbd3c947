#pragma once

#include "manager/store/catalog.h"
#include "manager/store/log/log_store.h"

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace bxm {

/// The folder of the embedded managers: one folder for each, and a file that names the default one.
/// Thread-safe.
class Home : public Catalog {
public:
  explicit Home(std::string folder) : m_folder(std::move(folder)) {}

  std::unique_ptr<StoreSession> connect(std::string_view name) override;
  void create(const std::string& name, bool makeDefault, const std::string& place) override;
  void remove(const std::string& name) override;
  bool has(std::string_view name) override;
  void setDefault(const std::string& name) override;
  void setSettings(const std::string& name, const ManagerSettings& settings) override;
  void grant(const std::string& name, const std::string& role, const std::string& may) override;
  std::vector<Entry> list() override;
  Findings check(const std::string& name) override;
  Repair repair(const std::string& name) override;
  std::vector<std::string> backup(const std::string& name, const std::string& target) override;
  void restore(const std::string& source, const std::string& name) override;

private:
  std::string defaultName();
  /// The home's folder; nullopt when there is none.
  std::optional<Folder> folder() const;
  /// A manager's. Throws Failure 2058 when there is none.
  Folder folderOf(const std::string& name) const;
  /// The name in the file that marks the default manager; empty when there is none.
  std::string markedName() const;
  static void markDefault(const Folder& home, const std::string& name);
  std::shared_ptr<LogStore> open(const std::string& name);
  void makeHome() const;
  /// Makes a manager with what fill puts into its folder.
  void build(const Folder& home, const std::string& name,
             const std::function<void(const Folder& made)>& fill);
  /// Throws Failure 2042 when this process uses the manager; lets go of what it has open.
  void letGo(const std::string& name);
  /// The default manager's where none is given. Throws Failure 2058.
  std::string givenName(const std::string& name) const;

  /// The one object for a folder. Whoever lets go of it last closes it, in whatever thread.
  struct OpenStore {
    std::shared_ptr<LogStore> open(const std::string& name, Folder folder);
    /// Waits for a thread that is closing it.
    void awaitClosed() const;

    std::weak_ptr<LogStore> store;
    std::shared_ptr<std::atomic<bool>> closed;
  };

  std::string m_folder;
  std::mutex m_mutex;                      ///< guards what follows
  std::map<std::string, OpenStore> m_open; ///< by manager
  std::shared_ptr<LogStore> m_latest;      ///< kept open: a process often connects again at once
};

/// A manager's name as a folder's name, and back. Slashes, percent signs and whatever could be
/// mistaken for another file are encoded as %XX.
std::string encodeFolderName(std::string_view name);
std::string decodeFolderName(std::string_view folder);

} // namespace bxm
