// To be preloaded: each flush takes BENCH_FLUSH_US microseconds more than the disk makes it.
#include <cstdlib>
#include <dlfcn.h>
#include <unistd.h>

namespace {

int slowly(const char* name, int file) {
  static const char* const us = std::getenv("BENCH_FLUSH_US");
  if (us) ::usleep(static_cast<useconds_t>(std::atoi(us)));
  return reinterpret_cast<int (*)(int)>(::dlsym(RTLD_NEXT, name))(file);
}

} // namespace

extern "C" int fsync(int file) { return slowly("fsync", file); }
extern "C" int fdatasync(int file) { return slowly("fdatasync", file); }
