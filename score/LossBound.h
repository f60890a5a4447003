// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sim/Simulate.h"

namespace reflyze::score {

// The least variance, dB^2, that the loss of a true event can be measured with, from the noise that its trace
// was given. `index` is neither the launch nor the end. Infinite where a section shows fewer than two settled
// samples.
double LeastLossVariance(const sim::Link& link, const sim::SimulatedTrace& trace, size_t index);

// The same for the level at a place of one line of unknown slope through the samples [from, to), dB^2.
double LeastLevelVariance(const std::vector<double>& sampleVarianceDb2, size_t from, size_t to, double at);

}  // namespace reflyze::score
