// SPDX-License-Identifier: Apache-2.0
#pragma once

// The splice detectors. Each searches one stretch of fibre, between two events that the filter has found, for
// a step that the filter's own limits did not show. AutoShort.cpp says in which order they run, and where.

#include "src/analysis/Noise.h"
#include "src/analysis/Scale.h"
#include "src/filter/FilterEvent.h"

struct AutoFilterResultData;

namespace reflyze {

// What a detector is asked. Places and windows are points of the filtered trace.
struct SpliceTask {
  const TraceScale& scale;
  NoiseSeen& noise;                    // ripples that the detector meets are noted here
  const AutoFilterResultData& filter;  // what the filter has found
  long first, end;                     // the stretch
  long sidePoints;                     // least window to measure a level over
  TFEvent& front;                      // the event in front; its end, rise and tail may move
  float& lossDb;                       // of the find
  TFEvent& find;
};

// First point of the find, 0 for none.
using Detector = long (*)(const SpliceTask& task);

long SearchBigSplices(const SpliceTask& task);    // steps that stand out from the noise
long SearchWeakSplices(const SpliceTask& task);   // steps that only show in means
long SearchNoiseSplices(const SpliceTask& task);  // steps on stretches that touch the noise

}  // namespace reflyze
