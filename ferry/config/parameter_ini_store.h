#pragma once

#include "ferry/config/parameter_store.h"

#include <string>

/// The parameters of an INI file in the default code page.
///
/// "[section]" lines, "name = value" lines, comments on lines of their own that start with "#";
/// everything else is ignored. White space around lines, names and values is dropped, and so are a
/// byte-order mark and the carriage returns of CRLF line ends. A line of more than 1,499 bytes is
/// read as several lines. When a key occurs again the last value counts.
class CCMEParameterINIStore : public CCMEParameterStore {
public:
  /// The name is in the default code page; the file is not opened yet.
  explicit CCMEParameterINIStore(std::string sFile) : m_sFile(std::move(sFile)) {}

  /// Throws VRK_Exception (9113E) when the file cannot be opened, or is none: a pipe, a folder, a
  /// device other than the null device. Parameters that the file lacks stay as they are.
  void read() override;
  /// Replaces the file by one with all parameters. Throws VRK_Exception (9112E) when it cannot be
  /// written whole; the old file is then still there, unchanged. Only a file that no other can
  /// replace, as one mounted by itself into a container, is written in place: there a full disk
  /// still leaves the old content, another failure maybe parts of both.
  void write() override;

private:
  void readLine(const UnicodeString& sLine, UnicodeString& sSection);
  std::string fileText() const;

  std::string m_sFile;
};
