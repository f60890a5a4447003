// SPDX-License-Identifier: Apache-2.0

// Filters on random samples and acquisition parameters. Nothing may be read or written outside its array,
// everything must come to an end, and the unfiltered trace comes back bit for bit.

#include <vector>

#include "ref/figures/refAutoNoise.h"
#include "src/filter/Filter.h"
#include "tests/fuzz/fuzzing.h"

using fuzzing::Check;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
  fuzzing::Input in(data, size);
  TSorData record;
  const std::uint8_t kinds = in.Take<std::uint8_t>();
  fuzzing::FillRecord(in, record);
  const std::vector<unsigned short> raw = record.DataPts->GetSubBlock()->samples;
  std::vector<short> widths(raw.size(), 1);
  TFEvent events[100];
  TSorFilter filter(&record);
  filter.result.events = events;
  filter.result.pointMap = widths.data();
  filter.SetFilter(7);
  Check(filter.result.count >= -1 && filter.result.count <= 200);
  for (const short width : widths) Check(width >= 0);
  TSorBlockKeyEvents1E event;
  event.ML0 = static_cast<int>(kinds) * 100;
  event.ML1 = event.ML0 + 1000;
  filter.GetKeyEventNoiseError(&event);
  filter.AutoFilterCalcNoise();
  if ((kinds & 1) != 0) filter.SetFilter(5);
  if ((kinds & 2) != 0) filter.SetFilter(1);
  if ((kinds & 4) != 0) filter.DynaF(&record);
  if ((kinds & 8) != 0) filter.TempFilter(&record, &record, 0.5);
  if ((kinds & 16) != 0) filter.PONFilter(&record, 0.5F, static_cast<float>(kinds) / 100.0F);
  if ((kinds & 32) != 0) filter.BeardFilter(&record, events, std::clamp(filter.result.count, 0L, 100L));
  filter.SetFilter(0);
  // Once the receiver's offset is taken out, the unfiltered trace is without it, too.
  Check(record.QRTParams->ZeroCorrected != 0 || record.DataPts->GetSubBlock()->samples == raw);
  // A kernel may have 32,767 coefficients for each point, so it is used on few points only.
  if ((kinds & 64) != 0 && raw.size() < 300) {
    for (int round = 0; round < 3; ++round) filter.IncLevelF(1);
    filter.EraseFilterStory();
  }
  return 0;
}
