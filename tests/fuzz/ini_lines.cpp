#include "ferry/config/parameter_ini_store.h"
#include "fuzz_check.h"

#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace {

/// A file in memory, with a name under which it can be opened.
class MemoryFile {
public:
  MemoryFile(const uint8_t* data, size_t size) : m_file(::memfd_create("input", 0)) {
    FUZZ_CHECK(m_file >= 0 && ::write(m_file, data, size) == static_cast<ssize_t>(size));
  }
  ~MemoryFile() { ::close(m_file); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  std::string path() const { return "/proc/self/fd/" + std::to_string(m_file); }

private:
  int m_file;
};

bool trimmed(const UnicodeString& s) {
  UnicodeString copy(s);
  return UCSS::RTrim(UCSS::LTrim(copy)) == s;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const MemoryFile file(data, size);
  CCMEParameterINIStore store(file.path());
  store.read();
  store.handleErrors();
  for (const auto& [key, parameter] : store.parameters()) {
    FUZZ_CHECK(parameter.m_bFound && trimmed(parameter.value()) && trimmed(parameter.m_sName));
    FUZZ_CHECK(store.find(parameter.m_sGroup, parameter.m_sName) == &parameter);
  }
  store.write();
  CCMEParameterINIStore(file.path()).read();
  return 0;
}
