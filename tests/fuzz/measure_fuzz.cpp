// SPDX-License-Identifier: Apache-2.0

// Measuring the table that any record lists, as it stands and after a search. What comes out is in order, on
// the trace, and made of numbers that somebody would sign; the record can be stored with it.

#include <cmath>

#include "lib/Measuring.h"
#include "src/module/Auto.h"
#include "tests/fuzz/fuzzing.h"

using fuzzing::Check;
using reflyze::Measured;
using reflyze::MeasuredEvent;
using reflyze::MeasuredLink;

namespace {

void CheckNumber(const std::optional<Measured>& number, double least, double most) {
  if (!number) return;
  Check(number->value >= least && number->value <= most);
  Check(number->deviation >= 0.0 && std::isfinite(number->deviation));
}

void CheckLink(const TSorData& record, const MeasuredLink& link) {
  Check(link.fibre == !link.events.empty());
  const double spacing = record.FxdParams->LenDS();
  const double last = spacing * static_cast<double>(record.DataPts->GetPointsNum());
  for (size_t i = 0; i < link.events.size(); ++i) {
    const MeasuredEvent& event = link.events[i];
    Check(event.listed < record.KeyEvents->ListedEvents());
    Check(i == 0 || event.km.value > link.events[i - 1].km.value);
    CheckNumber(event.km, i == 0 ? -1e9 : 0.0, last);
    CheckNumber(event.lossDb, -10.0, 60.0);
    CheckNumber(event.reflectanceDb, -120.0, 0.0);
    CheckNumber(event.attenuationDbPerKm, 0.0, 10.0);
    Check(event.probability >= 0.0 && event.probability <= 1.0);
    Check(event.frontFromKm <= event.frontToKm && event.behindFromKm <= event.behindToKm);
  }
  CheckNumber(link.totalLossDb, -10.0, 120.0);
  CheckNumber(link.returnLossDb, 0.0, 120.0);
}

void AddEvents(fuzzing::Input& in, TSorData& record) {
  const int count = in.Take<std::uint8_t>() % 24;
  std::int64_t owt = in.Take<std::uint8_t>();
  for (int i = 0; i < count; ++i) {
    auto* event = new TSorBlockKeyEvents1E();
    const std::uint8_t kind = in.Take<std::uint8_t>();
    owt += kind % 8 == 0 ? in.Take<int>() : in.Take<unsigned short>() % 4096;
    event->EPT = static_cast<int>(owt);
    event->EC = (std::string(1, "012D"[kind / 4 % 4]) + "F9999").c_str();
    record.KeyEvents->events->AddData(event);
    record.KeyEvents->TNKE = static_cast<short>(i + 1);
  }
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
    if (fuzzing::IsLarge(record)) return 0;
  } else {
    fuzzing::FillRecord(in, record);
    AddEvents(in, record);
  }
  for (const bool searched : {false, true}) {
    fuzzing::Completes([&] {
      if (searched) {
        void* parameters[20] = {&record};
        long value = 0;
        TAuto().ServiceFunction(cmdAnalyse, value, parameters);
      }
      const std::optional<MeasuredLink> link = reflyze::MeasureLink(record);
      if (!link) return;
      CheckLink(record, *link);
      if ((mode & 1) != 0) {
        reflyze::StoreListed(record, *link);
      } else {
        reflyze::StoreMeasured(record, *link);
      }
    });
    fuzzing::CheckStorable(record);
    if ((mode & 2) == 0) break;
  }
  return 0;
}
