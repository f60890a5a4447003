// SPDX-License-Identifier: Apache-2.0

// Tables of edits from any text. A table is refused with one line, or each of its rows is refused or done on
// a small trace: the file is then a record with the same samples, and what asks for no new event changes
// nothing when it is done again.

#include <algorithm>

#include "reflyze/reflyze.h"
#include "tests/fuzz/fuzzing.h"

using fuzzing::Check;
using namespace reflyze;

namespace {

Trace Small() {
  const Simulation simulation = Simulate(R"({"range_km": 6, "points": 1500, "pulse_ns": 100,
      "sections": [{"length_km": 1}, {"length_km": 2}, {"length_km": 1}],
      "joints": [{"loss_db": 0.3, "reflectance_db": -50}, {"loss_db": 0.4}]})");
  return Analyse(simulation.trace).record.Read();
}

bool IsOfEvents(const FieldEdit& edit) { return edit.field.rfind("event.", 0) == 0; }

void Do(const Trace& trace, std::vector<FieldEdit> edits) {
  try {
    for (FieldEdit& edit : edits) edit.value = FillPattern(edit.value, trace, 7);
    const EditedFile edited = Edit(trace, edits);
    const Trace after = Trace::FromBytes("edited", {edited.bytes.begin(), edited.bytes.end()});
    Check(after.LevelsDb() == trace.LevelsDb());
    if (std::any_of(edits.begin(), edits.end(), IsOfEvents)) return;
    const EditedFile again = Edit(after, edits);
    Check(again.bytes == edited.bytes);
  } catch (const Error& error) {
    Check(std::string(error.what()).find('\n') == std::string::npos);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
  static const Trace trace = Small();
  const std::string text(reinterpret_cast<const char*>(data), size);
  constexpr size_t kMostRows = 20;
  try {
    const std::vector<FileEdits> rows = EditsFromCsv("table", text);
    for (size_t i = 0; i < std::min(rows.size(), kMostRows); ++i) {
      Check(!rows[i].file.empty() && rows[i].line > 1);
      Do(trace, rows[i].edits);
    }
  } catch (const Error& error) {
    Check(error.kind() == ErrorKind::kUnreadable);
    Check(std::string(error.what()).find('\n') == std::string::npos);
  }
  return 0;
}
