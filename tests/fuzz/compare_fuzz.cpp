// SPDX-License-Identifier: Apache-2.0

// The comparison of two records from any bytes, the baseline with or without its own analysis. It must end
// with a code, and both records can be stored.

#include "src/module/Auto.h"
#include "tests/fuzz/fuzzing.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::uint8_t mode = data[size - 1];
  fuzzing::Input in(data, size);
  TSorData baseline, current;
  const auto first = in.Take<std::uint32_t>();
  for (TSorData* record : {&baseline, &current}) {
    const std::string bytes = in.TakeBytes(record == &baseline ? first : size);
    if (fuzzing::Overstates(bytes) || !fuzzing::ReadRecord(*record, bytes)) return 0;
  }
  if (fuzzing::IsLarge(baseline) || fuzzing::IsLarge(current)) return 0;
  const auto run = [](TCmdASF command, long value, TSorData& trace, TSorData* reference) {
    return fuzzing::Completes([&] {
      void* parameters[20] = {&trace};
      parameters[10] = reference;
      TAuto().ServiceFunction(command, value, parameters);
    });
  };
  if ((mode & 1) == 0 && !run(cmdAnalyse, 0, baseline, nullptr)) return 0;
  // As in monitoring, the first comparison filters, and those after it recheck.
  for (const long recheck : {0L, static_cast<long>(mode >> 1 & 1)}) {
    if (!run(cmdCompare, recheck, current, &baseline)) return 0;
    fuzzing::CheckStorable(baseline);
    fuzzing::CheckStorable(current);
  }
  return 0;
}
