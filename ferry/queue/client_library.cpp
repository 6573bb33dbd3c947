#include "ferry/queue/client_library.h"

#include "ferry/errors/bx_exception.h"
#include "ferry/logging/logger.h"
#include "ferry/queue/entry_points.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <mutex>
#include <string>
#include <vector>

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

// The loader names what it did not find; that may also be a library that the wanted one needs.
bool IsThere_b(const std::string& sName, const std::string& sWhy) {
  return !sWhy.starts_with(sName + ": ") || !sWhy.ends_with(std::strerror(ENOENT));
}

// The first name that loads. sWhy: what the last one failed with; aWhy: those that are there.
void* TryNames_p(std::string& sWhy, std::vector<std::string>& aWhy) {
  for (const char* pName : {"libbxm_r.so", "libbxm.so", "libbxic_r.so", "libbxic.so"}) {
    if (void* pLibrary = ::dlopen(pName, RTLD_LAZY | RTLD_GLOBAL)) return pLibrary;
    sWhy = ::dlerror();
    if (IsThere_b(pName, sWhy)) aWhy.push_back(std::string(pName) + " cannot be loaded: " + sWhy);
  }
  return nullptr;
}

void Load_v() {
  std::string sWhy;
  std::vector<std::string> aWhy;
  s_pLibrary = TryNames_p(sWhy, aWhy);
  // Nobody misses what another library replaces, and the log may be among a reader's records.
  for (const std::string& sLine : aWhy)
    CLogger::TryLog_b(s_pLibrary ? CSeverity::DBUG : CSeverity::ERR, u"%s", sLine.c_str());
  if (!s_pLibrary)
    throw Failure(u"Failed to load BXM module: " + UnicodeString(sWhy.c_str()), LOAD_FAILED);
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
