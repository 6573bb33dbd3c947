#pragma once

#include <string>

/// Gives a file a new content, or makes the file; false when it cannot be written whole.
///
/// A file that exists keeps its old content until the new one is on the disk, so a full
/// disk costs nothing. Only where no second file can be made beside it, and for what is
/// not a regular file, the old content goes first. Links are followed and permissions
/// kept.
bool ReplaceFile_b(const std::string& sFile, const std::string& sText);
