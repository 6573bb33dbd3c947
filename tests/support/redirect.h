#pragma once

#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace support {

/// Sends one of this process's descriptors elsewhere until the end of the scope.
class Redirect {
public:
  Redirect(int descriptor, const std::string& path, int flags)
      : Redirect(descriptor, ::open(path.c_str(), flags | O_CLOEXEC, 0600)) {}
  /// Takes over the open file.
  Redirect(int descriptor, int file) : m_descriptor(descriptor), m_saved(::dup(descriptor)) {
    if (file < 0 || ::dup2(file, descriptor) < 0) throw std::runtime_error("cannot redirect");
    ::close(file);
  }
  ~Redirect() {
    ::dup2(m_saved, m_descriptor);
    ::close(m_saved);
  }
  Redirect(const Redirect&) = delete;
  Redirect& operator=(const Redirect&) = delete;

private:
  const int m_descriptor;
  const int m_saved;
};

} // namespace support
