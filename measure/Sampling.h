// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "measure/FirstModel.h"
#include "measure/LinkFit.h"

namespace reflyze {

// The trace as means over blocks: each point where edges show, longer ones where the receiver only fades, the
// longest on settled fibre, some 40 a section. What a saturated receiver shows is left out.
std::vector<Sample> SamplesFor(const Powers& powers, const NotedModel& noted);

}  // namespace reflyze
