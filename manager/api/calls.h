#pragma once

#include "manager/api/handle_table.h"
#include "manager/engine/connection.h"

/// What all entry points share.
namespace bxm {

/// The codes for the exception in flight. What an operator has to look after is told in a line on
/// standard error, since the codes cannot say it.
Codes codesOfException(const char* call) noexcept;

/// The wall between the C callers and the C++ below: runs body, which returns Codes, lets nothing
/// through, and writes the reason first and the completion code last.
template <typename Body>
void guarded(const char* call, BXLONG* completion, BXLONG* reason, Body body) noexcept {
  Codes codes;
  try {
    codes = body();
  } catch (...) {
    codes = codesOfException(call);
  }
  *reason = codes.reason;
  *completion = codes.completion;
}

/// The connections of this process.
HandleTable<Connection>& connections();

/// Runs body with the connection, or gives 2018.
template <typename Body>
Codes withConnection(BXHCONN handle, Body body) {
  const auto& connection = connections().findAgain(handle);
  return connection ? body(*connection) : failed(BXRC_HCONN_ERROR);
}

/// True when a structure begins with this identifier and a version of this range.
template <typename Structure>
bool isStructure(const Structure* structure, const char* identifier, BXLONG highestVersion) {
  return structure && __builtin_memcmp(structure->structId, identifier, 4) == 0 &&
         structure->version >= 1 && structure->version <= highestVersion;
}

} // namespace bxm
