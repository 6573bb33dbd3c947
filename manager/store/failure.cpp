#include "manager/store/failure.h"

#include <cerrno>
#include <system_error>

namespace bxm {

namespace {

BXLONG reasonOf(int error, BXLONG fallback) {
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

void failWithErrno(int error, BXLONG fallback, const std::string& what) {
  throw Failure(reasonOf(error, fallback), what + ": " + std::generic_category().message(error));
}

} // namespace bxm
