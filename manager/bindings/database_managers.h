#pragma once

#include "bx/bx.h"
#include "manager/store/catalog.h"

/// What the client bindings offer to the server bindings of the same version: a program that has
/// loaded the latter reaches managers in databases, too, and does without the database's library
/// until it connects to one.
namespace bxm {

/// The C++ interface of the stores is one version's own.
constexpr int kBindingsVersion =
    (BX_VERSION_MAJOR * 1000 + BX_VERSION_MINOR) * 1000 + BX_VERSION_PATCH;
constexpr const char* kDatabaseManagers = "bxmDatabaseManagers";

} // namespace bxm

/// Null for server bindings of another version. Lives until the process ends.
extern "C" BXENTRY bxm::Catalog* bxmDatabaseManagers(int version);
