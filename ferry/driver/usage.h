#pragma once

/// Writes the banner and the usage to standard error.
void InvalidCommand();
