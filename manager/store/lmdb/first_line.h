#pragma once

#include <string>

namespace bxm {

/// The first line of a short file, without its end; empty when there is none. A stream would cost
/// more than all else of a connection that is not the disk's.
std::string firstLine(const std::string& path);

} // namespace bxm
