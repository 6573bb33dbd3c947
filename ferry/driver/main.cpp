#include "ferry/driver/run.h"
#include "ferry/text/default_code_page.h"

int main(int argc, char** argv) {
  UseUTF8CodePage_v();
  return RunFerry_n(argc, argv);
}
