// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sor/sorData.h"

namespace reflyze {

// The points of a record may be several stretches, each with a pulse and a spacing of its own. They are one
// trace where each goes on in time where the one before it ended: a short pulse for what is near, a long one
// for what is far. Some instruments put several whole traces of the same fibre into a file instead, one pulse
// after the other, and each stretch is the fibre from its launch on. No field of the file says which it is,
// but the levels do.

// How many whole traces a record holds: the number of its stretches where each of them begins like the first,
// else 1.
int TracesIn(const TSorData& record);

// Trace `index`, from 0, of such a record, as a record. It has no events, because those of the file don't say
// which trace they belong to.
std::unique_ptr<TSorData> TraceOf(const TSorData& record, int index);

// What a user has to know of the stretches of a record, empty where there is nothing.
std::string StretchWarning(const TSorData& record);

}  // namespace reflyze
