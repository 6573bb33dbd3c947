#include "ferry/queue/client_library.h"

#include "ferry/errors/bx_exception.h"
#include "ferry/queue/entry_points.h"

#include <cstdlib>
#include <dlfcn.h>
#include <mutex>

namespace {

// All of it, and g_obEntryPoints, is guarded by s_obMutex. The functions of this namespace are
// called with the mutex held.
constinit std::mutex s_obMutex;
constinit void* s_pLibrary = nullptr;
constinit unsigned s_nReferences = 0;

constexpr int LOAD_FAILED = 40;
constexpr int LOOKUP_FAILED = 41;

VRKBX_Exception Failure(const UnicodeString& sText, int nLine) {
  return VRKBX_Exception::genericError("", sText, 0, UnicodeString(), nLine, VRK_CRITICAL_ERROR);
}

void Load_v() {
  for (const char* pName : {"libbxm_r.so", "libbxm.so", "libbxic_r.so", "libbxic.so"}) {
    s_pLibrary = ::dlopen(pName, RTLD_LAZY | RTLD_GLOBAL);
    if (s_pLibrary) return;
  }
  throw Failure(UnicodeString(u"Failed to load BXM module: ") + UnicodeString(::dlerror()),
                LOAD_FAILED);
}

void* Find(const char* pName) {
  void* pFunction = s_pLibrary ? ::dlsym(s_pLibrary, pName) : nullptr;
  if (pFunction) return pFunction;
  throw Failure(UnicodeString(u"Failed to find function: ") + UnicodeString(pName), LOOKUP_FAILED);
}

// What is there already is not written again: other threads may be calling through it.
template <typename Function>
void Store_v(Function& pEntryPoint, void* pFound) {
  const auto pFunction = reinterpret_cast<Function>(pFound);
  if (pEntryPoint != pFunction) pEntryPoint = pFunction;
}

void FindAll_v() {
#define X(name) Store_v(g_obEntryPoints.name, Find(#name));
  FERRY_ENTRY_POINTS(X)
#undef X
}

void Release_v() noexcept {
  if (s_nReferences == 0) return;
  if (--s_nReferences > 0 || !s_pLibrary) return;
  ::dlclose(s_pLibrary);
  s_pLibrary = nullptr;
  g_obEntryPoints.BXOPEN = nullptr;
}

} // namespace

void InitBXM() {
  const std::lock_guard obGuard(s_obMutex);
  ++s_nReferences;
  if (!s_pLibrary) Load_v();
  try {
    FindAll_v();
  } catch (...) {
    Release_v();
    throw;
  }
}

void UninitBXM() noexcept {
  const std::lock_guard obGuard(s_obMutex);
  Release_v();
}

bool InitBXMUntilExit() {
  InitBXM();
  std::atexit(UninitBXM);
  return true;
}

void* FindFunc(const char* pName) {
  const std::lock_guard obGuard(s_obMutex);
  return Find(pName);
}
