#pragma once

#include "bx/bx.h"

/// The entry points of the client library, in the order in which they are looked up.
#define FERRY_ENTRY_POINTS(X)                                                                      \
  X(BXBACK)                                                                                        \
  X(BXBEGIN)                                                                                       \
  X(BXCLOSE)                                                                                       \
  X(BXCMIT)                                                                                        \
  X(BXCONN)                                                                                        \
  X(BXCONNX)                                                                                       \
  X(BXDISC)                                                                                        \
  X(BXGET)                                                                                         \
  X(BXOPEN)                                                                                        \
  X(BXPUT)                                                                                         \
  X(bxAddInquiry)                                                                                  \
  X(bxAddInteger)                                                                                  \
  X(bxAddString)                                                                                   \
  X(bxCountItems)                                                                                  \
  X(bxCreateBag)                                                                                   \
  X(bxDeleteBag)                                                                                   \
  X(bxExecute)                                                                                     \
  X(bxInquireBag)                                                                                  \
  X(bxInquireInteger)                                                                              \
  X(bxInquireString)                                                                               \
  X(bxTrim)

/// One pointer per entry point, null until looked up; changed under the loader's lock, and never
/// while a caller may be using it.
struct CEntryPoints {
#define X(name) decltype(&::name) name = nullptr;
  FERRY_ENTRY_POINTS(X)
#undef X
};

extern CEntryPoints g_obEntryPoints;
