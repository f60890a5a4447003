// SPDX-License-Identifier: Apache-2.0
#include "src/filter/Decisions.h"

namespace reflyze {

const char* NameOf(Stage stage) {
  switch (stage) {
    case Stage::kScan:
      return "scan";
    case Stage::kTail:
      return "tail";
    case Stage::kEchoes:
      return "echoes";
    case Stage::kDetectors:
      return "detectors";
    case Stage::kFineSplices:
      return "fine splices";
    case Stage::kWalk:
      return "walk";
    case Stage::kEndEchoes:
      return "end";
    case Stage::kInside:
      return "inside lines";
    case Stage::kSelection:
      return "selection";
    case Stage::kTable:
      return "table";
  }
  return "";
}

const char* NameOf(Choice choice) {
  switch (choice) {
    case Choice::kFound:
      return "found";
    case Choice::kDropped:
      return "dropped";
    case Choice::kEnd:
      return "end";
    case Choice::kNoEnd:
      return "no end";
  }
  return "";
}

}  // namespace reflyze
