#pragma once

#include <string>
#include <vector>

namespace faults {

/// Unattended work of the client program, random by a seed:
///
///   storm LOG WORKER SEED MS   everything at once on the queues kStormQueues; LOG has what it
///   tries
///                              and what came of it, before and after each call (see history.h)
///   power SEED UNITS BULK      units of work on the queue Q, or one large one, for a recording of
///                              the disk; marks tell what is tried and what has returned
int runLoad(const std::vector<std::string>& arguments);

inline const std::vector<std::string> kStormQueues{"S1", "S2", "S3"};

} // namespace faults
