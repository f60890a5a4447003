// SPDX-License-Identifier: Apache-2.0

// The analysis of records from any bytes, and of random traces, from the filter's events or by the direct
// search, of all events or of both ends. Events must come in order, and the record must be stored and
// analysed again.

#include <cstdint>
#include <limits>

#include "src/module/Auto.h"
#include "tests/fuzz/fuzzing.h"

using fuzzing::Check;

namespace {

// The launch stands at the offset of the record, right or wrong. Behind it comes what was found on the trace.
bool IsInOrder(const TSorData& record) {
  const TSorBlockKeyEvents& table = *record.KeyEvents;
  for (int i = 2; i < table.ListedEvents(); ++i) {
    if (table.EventAt(i - 1).EPT > table.EventAt(i).EPT) return false;
  }
  return true;
}

// Whether points follow each other in time, as on an instrument. Where time runs backwards or leaves the
// range of a marker, events in the order of points are not in the order of time.
bool HasTrueTimes(const TSorData& record) {
  double owt = record.NumToOwt(0);
  for (long i = 1; i < record.DataPts->GetPointsNum(); ++i) {
    const double before = owt;
    owt = record.NumToOwt(i);
    if (!(owt > before)) return false;
  }
  return owt <= std::numeric_limits<std::int32_t>::max();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
  if (size == 0) return 0;
  // The bytes of the checksum, which nothing reads, say what to do.
  const std::uint8_t mode = data[size - 1];
  TSorData record;
  fuzzing::Input in(data, size - 1);
  if (data[0] == 'M') {
    const std::string bytes = in.TakeBytes(size);
    if (fuzzing::Overstates(bytes) || !fuzzing::ReadRecord(record, bytes)) return 0;
    if (record.DataPts->GetPointsNum() == 0) return 0;
    if (fuzzing::IsLarge(record)) return 0;
  } else {
    fuzzing::FillRecord(in, record);
  }
  TTH thresholds;
  thresholds.THLoss = (mode & 1) != 0 ? 0.05 : 0.5;
  thresholds.THRef = (mode & 2) != 0 ? -65.0 : -50.0;
  thresholds.noShortAnalysis = (mode & 4) != 0 ? 1 : 0;
  // Where nothing is found, the old table stays and may be in any order.
  const bool inOrder = IsInOrder(record) && HasTrueTimes(record);
  for (const bool own : {(mode & 8) != 0, true}) {
    const bool analysed = fuzzing::Completes([&] {
      void* parameters[20] = {&record, own ? nullptr : &thresholds};
      long value = 0;
      TAuto analysis;
      analysis.ServiceFunction((mode & 16) != 0 ? cmdAnalyseEndsOnly : cmdAnalyse, value, parameters);
      Check(!inOrder || IsInOrder(record));
    });
    fuzzing::CheckStorable(record);
    if (!analysed) break;
  }
  return 0;
}
