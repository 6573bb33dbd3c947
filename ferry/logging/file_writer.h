#pragma once

#include "ferry/logging/log_writer.h"

#include <cstdint>
#include <cstdio>
#include <mutex>

/// Appends to one file, opened at the first message, and rotates it by size.
///
/// Parameters of the destination: style=bare leaves out time, severity and category; rotateSize=KiB
/// rotates a file that has grown beyond it, looked at no more than once a minute; keep=N keeps N
/// rotated copies, without it all are kept. rotateAge=hours is accepted, but rotates nothing.
///
/// Write_v throws VRKLog_Exception when the file cannot be opened or written. A failed write is
/// also logged under the category "filewriter", which no file writer writes. The next message tries
/// again, and starts a line of its own also where the file ends within one, whichever writer or
/// process has torn that. Failures to rotate are ignored: logging goes on in the same file. Two
/// writers of one path do not know of each other.
class CFileWriter : public CLogWriter {
public:
  static constexpr uint32_t KEEP_ALL = 0xFFFFFFFF;

  CFileWriter() = default;
  ~CFileWriter() override;

  void Start_v(const URIUC& obDestination) override;
  void Write_v(const UnicodeString& sTime, const UnicodeString& sSeverity,
               const UnicodeString& sCategory, const std::vector<UnicodeString>& obLines) override;
  void Stop_v() override;

  /// Makes the file, which must be closed, copy number 0 and keeps `nKeep` copies.
  void DoRotate_v(const UnicodeString& sPath, unsigned nKeep);

private:
  void ReadParameters_v(const URIUC& obDestination);
  void Open_v();
  void Close_v();
  void RotateIfGrown_v();
  bool HasGrown_b() const;

  std::mutex m_obMutex; // held for a whole message; guards what follows
  UnicodeString m_sPath;
  FILE* m_pFile = nullptr;
  int64_t m_nLastCheck = 0; // milliseconds
  bool m_bRotate = false;
  bool m_bBare = false;
  uint32_t m_nKeep = KEEP_ALL;
  uint32_t m_nRotateSize = 0; // bytes, 0 for no limit
  uint32_t m_nRotateAge = 0;  // seconds
};

class CFileWriterFactory : public CLogWriterFactory {
public:
  CLogWriter* CreateWriter_pob() override { return new CFileWriter; }
  static CFileWriterFactory& Instance_rob();
};
