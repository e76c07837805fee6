#pragma once
// C++ identifiers for the names of a DBC file, as generated message records use them. Real files
// carry names that are keywords ("int"), start with digits, hold odd characters, or repeat.

#include <string>

#include "host/dbc/dbc_database.h"
#include "host/hostbridge_export.h"

namespace hostbridge::dbc {

// Fills Message::codeName (unique in the database) and Signal::codeName (unique in its message).
// Clashes are resolved in two passes: names that already are usable identifiers keep themselves
// (the first of a repeated name wins); then every other name is made an identifier (odd characters
// become '_', a leading digit gets '_', a keyword or a standard macro gets a trailing '_') and, while
// taken, gets "_2", "_3", ... So a code name never equals another entry's own name, and a lookup by
// name first and by code name second finds the entry a record member stands for.
// Signals also avoid the members a record adds ("frame", "pack", "send") and their message's name.
HOSTBRIDGE_API void assignCodeNames(Database& database);

// `name` as an identifier, before the uniqueness pass.
HOSTBRIDGE_API std::string identifierFor(const std::string& name);

}  // namespace hostbridge::dbc
