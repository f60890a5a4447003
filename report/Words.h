// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "reflyze/events.h"
#include "reflyze/monitor.h"
#include "reflyze/quality.h"

// Numbers and states as the listings show them.

namespace reflyze {

// "-" for none; a saturated reflectance is more than the value.
std::string NumberOrDash(std::optional<double> value, int decimals);
std::string ReflectanceText(const Event& event);

const char* Word(Measurable measurable);
const char* Word(LaunchState launch);
// Which direction has seen an event itself: "a", "b" or "both".
const char* SeenFrom(bool a, bool b);

}  // namespace reflyze
