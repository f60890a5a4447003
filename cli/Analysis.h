#pragma once

#include <optional>
#include <string>

#include "cli/RecordFile.h"
#include "src/th.h"

namespace CLI {
class App;
}

namespace reflyze::cli {

class Session;

// Where the thresholds of an analysis come from: single values before the file, the file before the trace.
struct ThresholdOptions {
  std::optional<double> ltDb, rtDb, etDb, ctDbPerKm;
  std::string file;             // INI document
  std::string section = "NON";  // the section that such a document holds by default
};

void AddThresholdOptions(CLI::App& command, ThresholdOptions& options);

// Foreign instruments store 0 for a threshold that was never set; usual limits take its place. Throws Problem
// for a file or section that is not there.
TTH ThresholdsFor(const TSorData& record, const ThresholdOptions& options);

// Service command 0 or 1 on a loaded record. What the engine throws or asserts becomes a Problem.
void Analyse(Session& session, LoadedRecord& loaded, TTH& thresholds, bool endsOnly);

}  // namespace reflyze::cli
