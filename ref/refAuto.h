#pragma once

#include "ref/math/refAutoAverage.h"

// The measures and searches along a trace, by subject.

#include "ref/figures/refAutoNoise.h"  // noise floor, receiver fall, expected loss
#include "ref/figures/refAutoPolar.h"  // polarisation ripple
#include "ref/search/refAutoSearch.h"  // crossings, extremes, falls and rises
#include "ref/steps/refAutoSplice.h"   // steps of the level
