#pragma once

#include "bx/bx.h"

#ifdef __cplusplus
extern "C" {
#endif

struct AllStructures {
  BXMD md;
  BXOD od;
  BXGMO gmo;
  BXPMO pmo;
  BXCNO cno;
  BXBO bo;
};

extern const struct AllStructures kAllInC;

#ifdef __cplusplus
}
#endif
