#include "tests/manager/contract/api.h"

#include <dlfcn.h>
#include <stdexcept>

namespace contract {

namespace {

template <typename Function>
void resolve(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(::dlsym(library, name));
  if (!function) throw std::runtime_error(std::string("no entry point ") + name);
}

} // namespace

Api::Api(const std::string& library) {
  void* handle = ::dlopen(library.empty() ? nullptr : library.c_str(), RTLD_NOW);
  if (!handle) throw std::runtime_error(::dlerror());
#define BX_RESOLVE(name) resolve(handle, #name, name);
  BX_ENTRY_POINTS(BX_RESOLVE)
#undef BX_RESOLVE
}

} // namespace contract
