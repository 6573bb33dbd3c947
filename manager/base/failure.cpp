#include "manager/base/failure.h"

#include <cerrno>
#include <new>
#include <system_error>

namespace bxm {

namespace {

BXLONG reasonOfErrno(int error, BXLONG fallback) {
  switch (error) {
  case ENOSPC:
  case EDQUOT:
  case EFBIG: return BXRC_STORAGE_FULL;
  case EACCES:
  case EPERM:
  case EROFS: return BXRC_NOT_AUTHORIZED;
  case ENOMEM:
  case EMFILE:
  case ENFILE: return BXRC_RESOURCE_PROBLEM;
  default: return fallback;
  }
}

} // namespace

BXLONG reasonOf(const std::exception& error) {
  if (const auto* failure = dynamic_cast<const Failure*>(&error)) return failure->reason();
  return dynamic_cast<const std::bad_alloc*>(&error) ? BXRC_RESOURCE_PROBLEM : BXRC_UNEXPECTED;
}

void failWithErrno(int error, BXLONG fallback, const std::string& what) {
  throw Failure(reasonOfErrno(error, fallback),
                what + ": " + std::generic_category().message(error));
}

} // namespace bxm
