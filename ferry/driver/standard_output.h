#pragma once

#include <string>
#include <string_view>
#include <sys/types.h>

/// Standard output, of which no record may get lost unnoticed: every failure to write is thrown as
/// VRK_Exception.
class CStandardOutput {
public:
  CStandardOutput();
  /// Tries to write what is still there; only after an exception is there anything.
  ~CStandardOutput();
  CStandardOutput(const CStandardOutput&) = delete;
  CStandardOutput& operator=(const CStandardOutput&) = delete;

  /// Adds text to the buffer; a buffer that is full is written.
  void Add_v(std::string_view sText);
  /// Writes text behind what is in the buffer. Needs no memory.
  void Write_v(std::string_view sText);
  /// Hands everything to the operating system.
  void Flush_v();
  /// Waits until there is room for more or a signal comes (CInterruption), and makes sure that
  /// somebody is left to read, as far as that can be told.
  void AwaitReader_v() const;

  /// Where standard output stands, when that is the end of a file; else -1.
  static off_t End_n();
  /// Takes back what was written behind such an end: of a text that a full disk has torn, the next
  /// program would go on within a line.
  static void CutBack_v(off_t nEnd);

private:
  bool m_bHasReader; // somebody at the other end
  std::string m_sBuffer;
};
