#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

/// Reads lines from a descriptor, newline included, in pieces of at most 409,599 bytes. A longer
/// line comes in several pieces, none of which ends within a UTF-8 character. Bytes of any value
/// belong to their line, zero too. The last line need not have a newline.
///
/// Like standard I/O it reads ahead, and the end of the input is the end, also on a terminal where
/// more could follow.
class CLineReader {
public:
  /// beforeWait is called whenever a read would have to wait for input.
  CLineReader(int nDescriptor, std::function<void()> obBeforeWait);
  CLineReader(const CLineReader&) = delete;
  CLineReader& operator=(const CLineReader&) = delete;

  /// The next piece, valid until the next call. False at the end of input and when a signal asks
  /// for the end (CInterruption). Throws VRK_Exception when reading fails.
  bool Read_b(std::string_view& sLine);
  /// Where the last piece ends, in bytes from where reading began.
  uint64_t End_n() const { return m_nRead - (m_nEnd - m_nBegin); }
  /// Gives back what was read behind such a place, where the input can be repositioned.
  void LeaveAt_v(uint64_t nOffset);

  static constexpr size_t BUFFER_SIZE = 409600;

private:
  bool Fill_b();
  bool Take_b(size_t nLength, std::string_view& sLine);

  const int m_nDescriptor;
  const std::function<void()> m_obBeforeWait;
  const std::unique_ptr<char[]> m_pBuffer;
  size_t m_nBegin = 0; // what was read and not yet returned
  size_t m_nEnd = 0;
  uint64_t m_nRead = 0;
  bool m_bEnd = false; // of the input
};
