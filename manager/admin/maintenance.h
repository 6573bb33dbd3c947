#pragma once

#include "manager/admin/program.h"

/// The commands that look after all that a manager keeps.
namespace bxm::admin {

int checkManager(Arguments& arguments); ///< status 1 when damage was found
int repairManager(Arguments& arguments);
int backUpManager(Arguments& arguments);
int restoreManager(Arguments& arguments);
int copyManager(Arguments& arguments);

} // namespace bxm::admin
