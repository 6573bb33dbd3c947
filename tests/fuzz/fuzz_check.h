#pragma once

#include <cstdio>
#include <cstdlib>

/// Ends the process, which a fuzzer takes for a find, unless the condition holds.
#define FUZZ_CHECK(condition)                                                                      \
  do {                                                                                             \
    if (!(condition)) {                                                                            \
      std::fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition);                         \
      std::abort();                                                                                \
    }                                                                                              \
  } while (false)
