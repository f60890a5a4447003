#pragma once

// The measures and searches along a trace, by subject.

#include "ref/refAutoNoise.h"   // noise floor, receiver fall, expected loss
#include "ref/refAutoPolar.h"   // polarisation ripple
#include "ref/refAutoSearch.h"  // crossings, extremes, falls and rises
#include "ref/refAutoSplice.h"  // steps of the level
