// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>

class TSorData;

namespace reflyze {

// Two acquisitions of a fibre may count its time differently: with another group index, or from another user
// offset. What stays is the place in length. This gives a copy of `base`, its points and all its times
// carried over to the scale of `current`, on which the events of both can be paired by time; null where both
// have the same scale already, and where one has none.
std::unique_ptr<TSorData> OnTimeScaleOf(const TSorData& base, const TSorData& current);

}  // namespace reflyze
