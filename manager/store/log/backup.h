#pragma once

#include "manager/store/log/log_store.h"

#include <string>
#include <vector>

namespace bxm {

/// Copies the files of a manager that may be in use, and to which this process is connected, into
/// an empty folder. Returns what is damaged in the copy. Throws Failure.
std::vector<std::string> backUpStore(LogStore& store, const Folder& target);

/// Copies what backUpStore has written, as it is, on the disk. Throws Failure 2059 when it is none.
void copyBackup(const Folder& source, const Folder& target);

} // namespace bxm
