#pragma once

/// The whole run of the tool; returns the exit status, -1 after a failure. Nothing is thrown.
int RunFerry_n(int nCount, char** aArguments);
