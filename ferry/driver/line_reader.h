#pragma once

#include <functional>
#include <memory>
#include <string_view>

/// Reads lines from a descriptor, newline included, in pieces of at most 409,599 bytes. A longer
/// line comes in several pieces, none of which ends within a UTF-8 character. Bytes of any value
/// belong to their line, zero too. The last line need not have a newline.
///
/// Like standard I/O it reads ahead. What was not asked for is given back in the end where the
/// input can be repositioned, so that the next program on the same file goes on from there.
class CLineReader {
public:
  /// beforeWait is called whenever a read would have to wait for input.
  CLineReader(int nDescriptor, std::function<void()> obBeforeWait);
  ~CLineReader();
  CLineReader(const CLineReader&) = delete;
  CLineReader& operator=(const CLineReader&) = delete;

  /// The next piece, valid until the next call. False at the end of input and when a signal asks
  /// for the end (CInterruption). Throws VRK_Exception when reading fails.
  bool Read_b(std::string_view& sLine);
  /// The last piece was dealt with. One that was not, because of a failure or a signal, is given
  /// back in the end like what was not asked for.
  void Done_v() { m_nHeld = 0; }

  static constexpr size_t BUFFER_SIZE = 409600;

private:
  bool Fill_b();
  bool Take_b(size_t nLength, std::string_view& sLine);

  const int m_nDescriptor;
  const std::function<void()> m_obBeforeWait;
  const std::unique_ptr<char[]> m_pBuffer;
  size_t m_nBegin = 0; // what was read and not yet returned
  size_t m_nEnd = 0;
  size_t m_nHeld = 0; // the last piece, while nobody said that it is dealt with
};
