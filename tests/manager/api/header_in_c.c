/* The public header as a plain C99 program meets it. */
#include "bx/bx.h"

#include "tests/manager/api/header_in_c.h"

void fillInC(struct AllStructures* all) {
  const BXMD md = BXMD_DEFAULT;
  const BXOD od = BXOD_DEFAULT;
  const BXGMO gmo = BXGMO_DEFAULT;
  const BXPMO pmo = BXPMO_DEFAULT;
  const BXCNO cno = BXCNO_DEFAULT;
  const BXBO bo = BXBO_DEFAULT;
  all->md = md;
  all->od = od;
  all->gmo = gmo;
  all->pmo = pmo;
  all->cno = cno;
  all->bo = bo;
}
