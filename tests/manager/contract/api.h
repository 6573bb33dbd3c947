#pragma once

#include "bx/bx.h"

#include <string>

// clang-format off
#define BX_ENTRY_POINTS(X)                                                                         \
  X(BXCONN) X(BXCONNX) X(BXDISC) X(BXOPEN) X(BXCLOSE) X(BXPUT) X(BXGET) X(BXCMIT) X(BXBACK)        \
  X(BXBEGIN) X(bxCreateBag) X(bxDeleteBag) X(bxAddInteger) X(bxAddString) X(bxAddInquiry)          \
  X(bxCountItems) X(bxInquireInteger) X(bxInquireString) X(bxInquireBag) X(bxExecute) X(bxTrim)
// clang-format on

namespace contract {

/// The entry points of one client library, found as a program finds them at run time.
struct Api {
  /// Without a name those of the program itself. Throws std::runtime_error when the library or one
  /// of its entry points is missing.
  explicit Api(const std::string& library);

#define BX_DECLARE(name) decltype(&::name) name = nullptr;
  BX_ENTRY_POINTS(BX_DECLARE)
#undef BX_DECLARE
};

} // namespace contract
