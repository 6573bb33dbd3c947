#pragma once

#include "manager/admin/program.h"

/// The commands that look after what a manager has on the disk.
namespace bxm::admin {

int checkManager(Arguments& arguments); ///< status 1 when damage was found
int repairManager(Arguments& arguments);
int backUpManager(Arguments& arguments);
int restoreManager(Arguments& arguments);

} // namespace bxm::admin
