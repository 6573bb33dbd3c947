#pragma once

#include "manager/api/handle_table.h"
#include "manager/engine/connection.h"

namespace bxm {

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
