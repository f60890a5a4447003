// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "measure/FirstModel.h"
#include "measure/LinkFit.h"
#include "measure/MeasuredLink.h"

namespace reflyze {

// What a fit says of the link: each number with its standard deviation, by propagation of the covariance of
// all parameters.
MeasuredLink FiguresOf(const TSorData& record, const NotedModel& noted, const LinkFit& fit,
                       const DecayPrior& prior, const MeasureOptions& options);

}  // namespace reflyze
