#include "manager/store/lmdb/first_line.h"

#include <fcntl.h>
#include <unistd.h>

namespace bxm {

std::string firstLine(const std::string& path) {
  char text[256];
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return {};
  const ssize_t length = ::read(file, text, sizeof text);
  ::close(file);
  const std::string read(text, length > 0 ? static_cast<std::size_t>(length) : 0);
  return read.substr(0, read.find('\n'));
}

} // namespace bxm
