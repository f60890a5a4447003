// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "src/analysis/Scale.h"
#include "src/analysis/Settings.h"
#include "src/analysis/Table.h"

namespace reflyze {

// Looks for events inside every line and splits the lines at them.
void SearchInsideLines(const AnalysisSettings& settings, const TraceScale& scale, LineTable& table);

// Looks for the first event inside `line`. R or N for one: `head` is then the line in front of it and `line`
// starts behind it. _ for none: `line` is fitted.
char SearchEvent(const AnalysisSettings& settings, const TraceScale& scale, TEventLine& head,
                 TEventLine& line);
// First event between two points: 1 for a loss, -1 for a gain, 0 for none; `pos` is its point, `value` the
// step in dB, positive for a loss.
int SearchEvent(const AnalysisSettings& settings, const TraceScale& scale, long from, long to, long& pos,
                float& value);

}  // namespace reflyze
