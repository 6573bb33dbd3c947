#include "manager/admin/commands.h"

int main(int count, char** values) {
  return bxm::admin::switchCommandServerBy("strbxcsv", true, count, values);
}
