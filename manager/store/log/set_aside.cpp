#include "manager/store/log/set_aside.h"

#include "bx/bx.h"
#include "manager/base/failure.h"

#include <cerrno>

namespace bxm {

namespace {

constexpr char kHex[] = "0123456789abcdef";

/// How many bytes the character at the text's begin has; 0 when it is none.
std::size_t characterAt(std::string_view text) {
  const auto first = static_cast<unsigned char>(text[0]);
  const std::size_t size = first < 0x80                    ? 1
                           : first >= 0xC2 && first < 0xE0 ? 2
                           : first >= 0xE0 && first < 0xF0 ? 3
                           : first >= 0xF0 && first < 0xF5 ? 4
                                                           : 0;
  if (size > text.size()) return 0;
  for (std::size_t i = 1; i < size; ++i)
    if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) return 0;
  return size;
}

/// What is no text becomes dots.
void appendText(std::string& out, std::string_view text) {
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t size = characterAt(text.substr(i));
    if (size == 0 || (size == 1 && (text[i] < ' ' || text[i] == 0x7F)))
      out += '.';
    else if (text[i] == '"' || text[i] == '\\')
      (out += '\\') += text[i];
    else
      out += text.substr(i, size);
    i += size ? size : 1;
  }
}

void appendDigits(std::string& out, std::string_view bytes) {
  for (const char byte : bytes) {
    out += kHex[static_cast<unsigned char>(byte) >> 4];
    out += kHex[static_cast<unsigned char>(byte) & 15];
  }
}

} // namespace

void SetAside::open() {
  for (int number = 1; !m_file; ++number) {
    m_name = "damaged-" + std::to_string(number);
    m_file = m_folder.open(m_name, Folder::Access::kMakeNew);
  }
}

void SetAside::add(const Piece& piece) {
  if (!m_file) open();
  const auto quoted = [](std::string_view text) {
    std::string out = "\"";
    appendText(out, text);
    return out + "\"";
  };
  std::string line = "{\"file\":" + quoted(piece.file) + ",\"byte\":" + std::to_string(piece.byte);
  if (piece.queue != 0) {
    line += ",\"queue\":" + std::to_string(piece.queue);
    if (!piece.queueName.empty()) line += ",\"name\":" + quoted(piece.queueName);
    line += ",\"priority\":" + std::to_string(piece.priority);
  }
  line += ",\"fault\":" + quoted(piece.fault) + ",\"text\":" + quoted(piece.text) + ",\"bytes\":\"";
  appendDigits(line, piece.bytes);
  line += "\"}\n";
  if (const int error = m_file.write(line.data(), line.size(), m_size))
    failWithErrno(error, BXRC_UNEXPECTED, "cannot write " + m_folder.pathOf(m_name));
  m_size += line.size();
  ++m_count;
}

void SetAside::finish() const {
  const int error = m_file ? m_file.sync() : 0;
  if (error) failWithErrno(error, BXRC_UNEXPECTED, "cannot write " + m_folder.pathOf(m_name));
  m_folder.sync();
}

} // namespace bxm
