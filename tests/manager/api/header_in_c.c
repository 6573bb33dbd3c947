/* The public header as a plain C99 program meets it. */
#include "tests/manager/api/header_in_c.h"

const struct AllStructures kAllInC = {BXMD_DEFAULT,  BXOD_DEFAULT,  BXGMO_DEFAULT,
                                      BXPMO_DEFAULT, BXCNO_DEFAULT, BXBO_DEFAULT};
