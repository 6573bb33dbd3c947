#include "manager/api/calls.h"

#include "manager/base/failure.h"
#include "manager/base/names.h"

#include <cstdio>
#include <new>

namespace bxm {

namespace {

bool isForTheOperator(BXLONG reason) {
  return reason == BXRC_Q_MGR_NOT_AVAILABLE || reason == BXRC_Q_MGR_NAME_ERROR ||
         reason == BXRC_NOT_AUTHORIZED || reason == BXRC_OBJECT_DAMAGED ||
         reason == BXRC_UNEXPECTED || reason == BXRC_RESOURCE_PROBLEM ||
         reason == BXRC_STORAGE_FULL || reason == BXRC_MAX_CONNECTIONS ||
         reason == BXRC_CONNECTION_BROKEN;
}

void tell(const char* call, const char* text) { std::fprintf(stderr, "bxm: %s: %s\n", call, text); }

} // namespace

Codes codesOfException(const char* call) noexcept {
  try {
    throw;
  } catch (const Failure& failure) {
    if (isForTheOperator(failure.reason())) tell(call, failure.what());
    return failed(failure.reason());
  } catch (const std::bad_alloc&) {
    return failed(BXRC_RESOURCE_PROBLEM);
  } catch (const std::exception& error) {
    tell(call, error.what());
  } catch (...) {
    tell(call, "unknown error");
  }
  return failed(BXRC_UNEXPECTED);
}

} // namespace bxm
