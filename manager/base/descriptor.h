#pragma once

namespace bxm {

/// A descriptor that was just opened, or -1. It is moved where it cannot stand for a standard
/// stream: what a program writes to one that it was started without would go into the file. -1,
/// with errno, when that is not possible; the file is closed then.
int apartFromStandardStreams(int descriptor);

} // namespace bxm
