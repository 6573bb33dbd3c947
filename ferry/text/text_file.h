#pragma once

#include <cstdio>
#include <memory>
#include <string>

struct CloseTextFile {
  void operator()(FILE* pFile) const { std::fclose(pFile); }
};
using TextFilePtr = std::unique_ptr<FILE, CloseTextFile>;

/// Opens a file that is to be read to its end. Null when that cannot be, and for everything that
/// may have no end or keep its reader waiting: what is neither a regular file nor the null device,
/// which is an empty one. A pipe's writer is not waited for.
TextFilePtr OpenTextFile_pob(const std::string& sPath);
