// SPDX-License-Identifier: Apache-2.0
#pragma once

// The measures and searches along a trace, by subject. A file that needs more than one of them includes this
// one.

#include "ref/figures/refAutoNoise.h"  // noise floor, receiver fall, expected loss
#include "ref/figures/refAutoPolar.h"  // polarisation ripple
#include "ref/math/refAutoAverage.h"   // plain means; in math/ since the searches need them too
#include "ref/search/refAutoSearch.h"  // crossings, extremes, falls and rises
#include "ref/steps/refAutoSplice.h"   // steps of the level
