// SPDX-License-Identifier: Apache-2.0

// Documents of limits from any text. One is refused with one line, or judges: a link by it fails, passes or
// is not judged, always in the same way, and says why for each number that is no pass.

#include <cmath>

#include "reflyze/reflyze.h"
#include "tests/fuzz/fuzzing.h"

using fuzzing::Check;
using namespace reflyze;

namespace {

EventTable Table() {
  EventTable table;
  table.fibre = true;
  table.wavelengthNm = 1550.0;
  table.lengthKm = 12.0;
  table.totalLossDb = 3.2;
  table.totalLossSdDb = 0.01;
  table.returnLossDb = 31.0;
  for (int i = 0; i < 5; ++i) {
    Event event;
    event.number = i + 1;
    event.distanceKm = 3.0 * i;
    event.code = i % 2 == 0 ? "1F9999" : "0F9999";
    event.lossDb = 0.1 * i;
    event.lossSdDb = 0.02;
    if (i % 2 == 0) event.reflectanceDb = -45.0;
    event.attenuationDbPerKm = 0.2;
    table.events.push_back(event);
  }
  table.events[3].lossDb.reset();  // of it and the next one only the sum is known
  return table;
}

void CheckLimit(const Limit& limit) {
  for (const std::optional<double>& bound : {limit.fail, limit.warning})
    Check(!bound || std::isfinite(*bound));
}

void CheckSet(const LimitSet& set) {
  for (const Limit& limit : {set.spliceDb, set.connectorDb, set.reflectanceDb, set.sectionDbPerKm,
                             set.spanLossDb, set.returnLossDb, set.lengthKm, set.leastLengthKm})
    CheckLimit(limit);
  for (const std::vector<BandLimit>* bands : {&set.attenuationDbPerKm, &set.linkDbPerKm}) {
    for (const BandLimit& band : *bands) {
      CheckLimit(band.limit);
      Check(band.fromNm <= band.toNm);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    const Limits limits = Limits::FromText("limits", text);
    CheckSet(limits.oneWay);
    CheckSet(limits.meanOfTwo);
    static const EventTable table = Table();
    const LinkVerdict verdict = Judge(table, limits);
    Check(verdict.events.size() == table.events.size());
    Check(verdict.verdict != Verdict::kFail || !verdict.sentences.empty());
    Check(Judge(table, Limits::FromText("limits", text)).sentences == verdict.sentences);
  } catch (const Error& error) {
    Check(error.kind() == ErrorKind::kUnreadable);
    Check(std::string(error.what()).find('\n') == std::string::npos);
  }
  return 0;
}
