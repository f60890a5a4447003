// SPDX-License-Identifier: Apache-2.0

// Curves in CSV from any text. A text is refused with one line, or becomes a trace whose listing becomes the
// same trace.

#include <cmath>

#include "reflyze/reflyze.h"
#include "tests/fuzz/fuzzing.h"

using fuzzing::Check;

namespace {

void CheckSame(const reflyze::Trace& one, const reflyze::Trace& other) {
  const std::vector<double>&levels = one.LevelsDb(), &again = other.LevelsDb();
  Check(levels.size() == again.size());
  const double spacing = one.GetCard().spacingM / 1000.0;
  for (size_t i = 0; i < levels.size(); ++i) {
    Check(std::isfinite(levels[i]) && std::isfinite(one.DistancesKm()[i]));
    Check(std::fabs(levels[i] - again[i]) < 0.0011);
    // Times are whole numbers on file, and listings end at a millimetre.
    Check(std::fabs(one.DistancesKm()[i] - other.DistancesKm()[i]) < 2e-5 + spacing);
  }
}

void Import(const std::string& text, const reflyze::ImportOptions& options) {
  try {
    const reflyze::Trace trace = reflyze::ImportCurve(text, options).trace;
    reflyze::ImportOptions same = options;
    same.distanceColumn.clear();
    same.levelColumn.clear();
    same.unit.clear();
    same.groupIndex = trace.GetCard().groupIndex;
    // Points that lie nearer to each other than a listing can tell have none.
    if (trace.GetCard().spacingM < 0.01) return;
    const std::string listing = reflyze::CurveCsvHeader(false) + reflyze::CurveCsv(trace, false);
    CheckSame(trace, reflyze::ImportCurve(listing, same).trace);
  } catch (const reflyze::Error& error) {
    Check(std::string(error.what()).find('\n') == std::string::npos && error.what()[0] != '\0');
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  reflyze::ImportOptions named, metres;
  named.distanceColumn = "2";
  named.levelColumn = "level";
  named.userOffsetKm = 1.5;
  metres.unit = "m";
  metres.groupIndex = 1.4682;
  for (const reflyze::ImportOptions& options : {reflyze::ImportOptions(), named, metres})
    fuzzing::Completes([&] { Import(text, options); });
  return 0;
}
