// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "paper/Panel.h"

namespace reflyze::paper {

// How many splices have which loss: a bar for gains, one for each step, the last for all beyond.
void DrawHistogram(Canvas& canvas, const Box& box, const std::vector<int>& counts, const Texts& texts);

}  // namespace reflyze::paper
