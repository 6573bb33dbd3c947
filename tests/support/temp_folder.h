#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace support {

/// A fresh folder that goes, with all in it, at the end of the scope.
class TempFolder {
public:
  TempFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "ferry-test-XXXXXX").string();
    if (!::mkdtemp(name.data())) throw std::runtime_error("mkdtemp failed");
    m_path = name;
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::filesystem::path& path() const { return m_path; }
  std::string operator/(const std::string& name) const { return (m_path / name).string(); }

private:
  std::filesystem::path m_path;
};

} // namespace support
