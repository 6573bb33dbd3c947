#include "manager/store/postgres/managers_file.h"

#include "bx/bx.h"
#include "manager/base/failure.h"
#include "manager/base/home_folder.h"
#include "manager/base/names.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <unistd.h>
#include <vector>

namespace bxm {

namespace {

constexpr const char* kSection = "[managers]";
constexpr const char* kDefault = "default";
constexpr const char* kOfTheMachine = "/etc/bxm/bxclient.ini";

const char* namedPath() {
  const char* path = std::getenv("BXM_CLIENT_INI");
  return path && *path ? path : nullptr;
}

std::string pathOfFile() {
  if (const char* path = namedPath()) return path;
  try {
    const std::string path = homeFolder() + "/bxclient.ini";
    if (::access(path.c_str(), F_OK) == 0 || std::getenv("BXM_HOME")) return path;
  } catch (const Failure&) { // a user without a home may still use the system's
  }
  return kOfTheMachine;
}

std::string trimmed(const std::string& text) {
  const auto first = text.find_first_not_of(" \t\r"), last = text.find_last_not_of(" \t\r");
  return first == std::string::npos ? "" : text.substr(first, last - first + 1);
}

struct Line {
  std::string text, key, value;
  bool inSection = false;
};

std::vector<Line> linesOf(const std::string& path) {
  std::vector<Line> lines;
  std::ifstream file(path, std::ios::binary);
  if (!file && errno == ENOENT) return lines;
  bool inSection = false;
  for (std::string text; std::getline(file, text);) {
    Line line{text, "", "", inSection};
    const std::string content = trimmed(text);
    if (content.starts_with("["))
      line.inSection = inSection = content == kSection;
    else if (const auto equal = content.find('=');
             equal != std::string::npos && !content.starts_with("#") && !content.starts_with(";")) {
      line.key = trimmed(content.substr(0, equal));
      line.value = trimmed(content.substr(equal + 1));
    }
    lines.push_back(line);
  }
  if (!file.eof()) failWithErrno(errno, BXRC_Q_MGR_NOT_AVAILABLE, "cannot read " + path);
  return lines;
}

/// Who may not change the machine's file gets one of their own.
std::string pathToWrite(const std::string& read) {
  const bool isTheirs = namedPath() || read != kOfTheMachine || ::geteuid() == 0;
  return isTheirs ? read : homeFolder() + "/bxclient.ini";
}

/// The new file takes the old one's place as a whole.
void write(const std::string& read, const std::vector<std::string>& lines) {
  namespace fs = std::filesystem;
  const std::string path = pathToWrite(read);
  std::error_code ignored;
  if (fs::path(path).has_parent_path())
    fs::create_directories(fs::path(path).parent_path(), ignored);
  const std::string made = path + ".new";
  {
    std::ofstream file(made, std::ios::binary);
    for (const std::string& line : lines) file << line << '\n';
    if (!file.flush()) failWithErrno(errno, BXRC_Q_MGR_NOT_AVAILABLE, "cannot write " + made);
  }
  // A power cut leaves the old file or the new one, and no empty one.
  const int descriptor = ::open(made.c_str(), O_RDONLY | O_CLOEXEC);
  const int error = descriptor < 0 || ::fsync(descriptor) != 0 ? errno : 0;
  if (descriptor >= 0) ::close(descriptor);
  if (error) failWithErrno(error, BXRC_Q_MGR_NOT_AVAILABLE, "cannot write " + made);
  if (std::rename(made.c_str(), path.c_str()) != 0)
    failWithErrno(errno, BXRC_Q_MGR_NOT_AVAILABLE, "cannot write " + path);
}

} // namespace

ManagersFile ManagersFile::read() {
  ManagersFile read;
  read.path = pathOfFile();
  for (const Line& line : linesOf(read.path)) {
    if (!line.inSection || line.key.empty()) continue;
    if (line.key == kDefault)
      read.defaultName = line.value;
    else if (isName(line.key))
      read.places[line.key] = line.value;
    else
      throw Failure(BXRC_Q_MGR_NOT_AVAILABLE,
                    read.path + ": " + notAName(line.key, "queue manager"));
  }
  return read;
}

void ManagersFile::add(const std::string& name, const std::string& place, bool makeDefault) const {
  std::vector<std::string> settings{name + " = " + place};
  if (makeDefault) settings.insert(settings.begin(), std::string(kDefault) + " = " + name);
  insert(settings, makeDefault);
}

bool ManagersFile::has(std::string_view name) const {
  return name.empty() ? !defaultName.empty() : places.count(std::string(name)) > 0;
}

void ManagersFile::setDefault(const std::string& name) const {
  if (name.empty())
    insert({}, true);
  else
    insert({std::string(kDefault) + " = " + name}, true);
}

/// At the head of the section, in the place of an older default where there is a new one.
void ManagersFile::insert(const std::vector<std::string>& settings, bool withDefault) const {
  std::vector<std::string> lines;
  bool added = false;
  const auto addHere = [&] {
    lines.insert(lines.end(), settings.begin(), settings.end());
    added = true;
  };
  for (const Line& line : linesOf(path)) {
    if (withDefault && line.inSection && line.key == kDefault) continue;
    lines.push_back(line.text);
    if (!added && trimmed(line.text) == kSection) addHere();
  }
  if (!added) {
    lines.push_back(kSection);
    addHere();
  }
  write(path, lines);
}

void ManagersFile::remove(const std::string& name) const {
  std::vector<std::string> lines;
  for (const Line& line : linesOf(path)) {
    const bool its = line.key == name || (line.key == kDefault && line.value == name);
    if (!line.inSection || !its) lines.push_back(line.text);
  }
  write(path, lines);
}

} // namespace bxm
