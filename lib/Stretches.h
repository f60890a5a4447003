#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sor/sorData.h"

namespace reflyze {

// The points of a record may be several stretches, each with a pulse and a spacing of its own. They are one
// trace where each goes on in time where the one before it ended: a short pulse for what is near, a long one
// for what is far. Some instruments put several whole traces into a file instead, of the same fibre with one
// pulse after the other, and mean by each stretch the fibre from its launch on. Nothing in the file says
// which it is, but the light does.

// How many traces of their own a record holds: the number of its stretches where each of them begins like the
// first, else 1.
int TracesIn(const TSorData& record);

// Trace `index`, from 0, of such a record, as a record. It has no events: those of the file don't say which
// trace they are of.
std::unique_ptr<TSorData> TraceOf(const TSorData& record, int index);

// What a user has to know of the stretches of a record, empty where there is nothing.
std::string StretchWarning(const TSorData& record);

}  // namespace reflyze
