// SPDX-License-Identifier: Apache-2.0
#include "reflyze/paper.h"

extern "C" REFLYZE_API const reflyze::PaperDoor* ReflyzePaperDoor() {
  static const reflyze::PaperDoor door = {REFLYZE_LIBRARY_VERSION,        sizeof(reflyze::PaperOptions),
                                          sizeof(reflyze::PicturedTrace), reflyze::ReportOf,
                                          reflyze::PaperEndings,          reflyze::PaperLanguages};
  return &door;
}
