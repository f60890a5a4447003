// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "measure/FirstModel.h"
#include "measure/LinkFit.h"

namespace reflyze {

// The trace as means over blocks: each point where edges show, longer ones where the receiver only fades, the
// longest on settled fibre, some 40 a section. What a saturated receiver shows is left out.
// To find roughly what the receiver is like, half as many do.
enum class Sampling { kFull, kHalf };
std::vector<Sample> SamplesFor(const Powers& powers, const NotedModel& noted,
                               Sampling sampling = Sampling::kFull);

}  // namespace reflyze
