#include "manager/base/random_number.h"

#include "manager/base/failure.h"

#include <cerrno>
#include <sys/random.h>

namespace bxm {

std::uint64_t randomNumber() {
  std::uint64_t number = 0;
  if (::getrandom(&number, sizeof number, 0) != sizeof number)
    failWithErrno(errno, BXRC_RESOURCE_PROBLEM, "no random numbers");
  return number;
}

} // namespace bxm
