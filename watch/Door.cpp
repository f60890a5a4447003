// SPDX-License-Identifier: Apache-2.0
#include "reflyze/watch.h"

extern "C" REFLYZE_API const reflyze::WatchDoor* ReflyzeWatchDoor() {
  static const reflyze::WatchDoor door = {REFLYZE_LIBRARY_VERSION, sizeof(reflyze::CentreOptions),
                                          reflyze::OpenCentre, reflyze::CheckCentre, reflyze::SetCentreUser};
  return &door;
}
