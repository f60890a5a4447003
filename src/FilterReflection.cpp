// What kind of event an edge of the linear trace is. Until the measurements are in place: no reflection, no
// fall, and a dead zone that ends where it began.

#include "src/Filter.h"

long TSorFilter::RflAnalisys(TFEvent* /*prev*/, long& /*pos*/, long /*last*/, long /*recover*/, long /*w2*/,
                             float /*T*/, long& fallAt, long& width) {
  fallAt = 0;
  width = 0;
  return -1;
}

long TSorFilter::FallAnalisys(long /*begin*/, long /*from*/, long /*to*/, long /*pw*/, long /*w*/,
                              float /*T*/) {
  return 0;
}

long TSorFilter::SearchDZ(TSorData* /*sor*/, TFEvent* ev, long /*limit*/, float& /*deadFall*/) {
  ev->end = ev->rise;
  return ev->rise;
}
