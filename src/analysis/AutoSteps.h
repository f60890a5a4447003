// SPDX-License-Identifier: Apache-2.0
#pragma once

// Steps by differences of mean power. Steps are in dB, positive for a loss; places and windows in points.

#include "src/analysis/Scale.h"

namespace reflyze {

// First step that exceeds `up` (loss) or `down` (gain), in dB, between windows of `pin` points that lie
// `d1` to `d2` points apart. `step` is its height, `slope` the fibre's, in dB per point. Without a step, the
// last point and step looked at.
long SearchLoss(const TraceScale& scale, double up, double down, long from, long to, long pin, long d1,
                long d2, double slope, float& step);
// Largest step in size over the same windows, with its point in `pos`. A gain above `limit` counts first.
double VarPowerTest(const TraceScale& scale, double limit, long& pos, long from, long to, long pin, long d1,
                    long d2, double slope);
// Largest step per OWT between two one-way times, in dB. A gain above `limit` dB counts first.
double SearchMaxDbOwt(const TraceScale& scale, double limit, double owt, double dOwt);

}  // namespace reflyze
