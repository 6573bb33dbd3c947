// Takes and gives back references to the client library in a process of its own, as the arguments
// say, and tells what came of it. The library search path is that of the caller.
#include "ferry/errors/bx_exception.h"
#include "ferry/logging/logger.h"
#include "ferry/queue/client_library.h"
#include "ferry/text/default_code_page.h"

#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <filesystem>
#include <string>

namespace {

std::string loadedLibrary() {
  try {
    Dl_info info;
    if (::dladdr(FindFunc("BXOPEN"), &info) == 0) return "?";
    const char* slash = std::strrchr(info.dli_fname, '/');
    return slash ? slash + 1 : info.dli_fname;
  } catch (const VRKBX_Exception&) {
    return "none";
  }
}

// "link:TARGET:NAME" makes a library appear while the process runs.
void makeLink(const std::string& verb) {
  const size_t colon = verb.rfind(':');
  std::filesystem::create_symlink(verb.substr(5, colon - 5), verb.substr(colon + 1));
}

void step(const std::string& verb) {
  if (verb.starts_with("link:")) makeLink(verb);
  if (verb == "init") InitBXM();
  if (verb == "uninit") UninitBXM();
  if (verb == "show") std::printf("%s\n", loadedLibrary().c_str());
}

} // namespace

int main(int argc, char** argv) {
  UseUTF8CodePage_v();
  CLogger logger(u"probe");
  logger.LoadConfig_b(u"console://stdout/?style=bare *.!DBUG");
  CLogger::SetGlobal_v(&logger);
  for (int n = 1; n < argc; ++n) {
    try {
      step(argv[n]);
    } catch (const VRKBX_Exception& e) {
      std::printf("%s [%d %d]\n", e.what(), e.ExceptionCode(0), int(e.Severity()));
    }
  }
  return 0;
}
