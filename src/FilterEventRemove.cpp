#include "src/Filter.h"

// Not written yet: no event is taken for an echo and none is reported.
long TSorFilter::AutoFilterEventRemove(TSorData* /*sor*/, long& count, TFEvent* /*work*/, TFEvent* /*out*/) {
  const long found = count;
  count = 0;
  return found;
}

long TSorFilter::AutoFilterEventRemove(TSorData* /*sor*/, long count, TFEvent* /*ev*/, long& skip) {
  skip = 0;
  return count;
}
