// Reflections that are two, and echoes that are none. Until the measurements are in place: neither is found.

#include "src/Filter.h"

long TSorFilter::DoubleRDetect(long /*i*/, long /*rf*/, long /*w*/, float /*T*/) { return 0; }

bool TSorFilter::isGost(TSorData* /*sor*/, TFEvent* /*src*/, TFEvent* /*g*/) { return false; }
