// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "reflyze/events.h"

namespace reflyze {

// What the stages of the analysis said, under the event to which each place belongs.
std::string ReasonsText(const EventTable& table);

}  // namespace reflyze
