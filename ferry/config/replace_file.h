#pragma once

#include <string>

/// Gives a file a new content, or makes the file. True once the content is on the disk; false when
/// it cannot be written whole. Links are followed, owner and permissions kept, and no second file
/// is left behind.
///
/// A file that exists is replaced by another: it has its old content until it has the new one, also
/// when the call fails or the power does.
///
/// Where no other file can take its place it is written in place: a file that is mounted by itself,
/// or is another user's, or whose folder lets no file be made, removed or renamed. A disk that is
/// too full for the new content then still leaves the old one. After any other failure to write, or
/// the end of the process or the power in the middle, the file may hold parts of both: a caller
/// that is told so should write it again.
///
/// What is no regular file (a pipe, a device) is just written to; a file that could not be made
/// whole stays as far as it got.
bool ReplaceFile_b(const std::string& sFile, const std::string& sText);
