#include "ferry/text/default_code_page.h"

#include <unicode/ucnv.h>

void UseUTF8CodePage_v() { ucnv_setDefaultName("UTF-8"); }
