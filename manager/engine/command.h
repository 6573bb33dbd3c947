#pragma once

#include "manager/base/failure.h"
#include "manager/engine/bag.h"
#include "manager/engine/connection.h"

namespace bxm {

/// Runs an administration command (BXCMD_*) and fills the response bag with one nested bag for each
/// queue. A refusal is 3008, the nested bag then holds the command's own codes.
Codes execute(Connection& connection, BXLONG command, const Bag& arguments, Bag& response);

} // namespace bxm
