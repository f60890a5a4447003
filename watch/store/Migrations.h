// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "watch/store/Store.h"

namespace reflyze::watch {

// The schema that the last step makes.
int NewestVersion();

// The version that a store has; 0 for an empty one. Throws Error kUnreadable for a database of something
// else.
int SchemaVersion(soci::session& session, Dialect kind);

// Takes the steps that a store has not taken yet, each whole or not at all. Throws Error kUnreadable, naming
// `address`, for a store of a newer version.
void Migrate(soci::session& session, Dialect kind, const std::string& address);

}  // namespace reflyze::watch
