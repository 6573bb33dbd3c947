#pragma once

/// How bad an error is. Any other number is printed as "UNSPECIFIED".
enum VRK_Severity : int {
  VRK_NO_SEVERITY = -1, // an entry that leaves the severity of its exception as it is
  VRK_INFORMATION = 0,
  VRK_WARNING = 1,
  VRK_MINOR_ERROR = 2,
  VRK_MAJOR_ERROR = 3,
  VRK_CRITICAL_ERROR = 4
};
