// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "watch/store/Store.h"
#include "watch/store/Values.h"

namespace reflyze::watch {

// The bytes of a file in a table (id, bytes), exactly as they are.
void InsertBytes(soci::session& session, Dialect kind, const std::string& table, Id id,
                 const std::string& bytes);
// Empty where there are none.
std::string ReadBytes(soci::session& session, Dialect kind, const std::string& table, Id id);

}  // namespace reflyze::watch
