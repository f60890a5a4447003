#pragma once

#include <memory>
#include <optional>
#include <string>

#include "cli/RecordFile.h"
#include "src/analysis/th.h"
#include "util/tinifile.h"

namespace CLI {
class App;
}

namespace reflyze::cli {

class Session;

// Where the thresholds of an analysis come from: single values before the file, the file before the trace.
struct ThresholdOptions {
  std::optional<double> ltDb, rtDb, etDb, ctDbPerKm;
  std::optional<double> mostLtDb;  // wherever the loss threshold comes from, it is no larger than this
  std::string file;                // INI document
  std::string section = "NON";     // the section that such a document holds by default
};

void AddThresholdOptions(CLI::App& command, ThresholdOptions& options);

// The thresholds of every trace of a run. The document is read once, so that it may come through a pipe. Of
// its text more is forgiven than by the documents of an instrument: any line ends, also none behind the last
// line, blanks around "=", the mark that some editors put at the head; a key without a value does not count.
// What is no number in it is a Problem, and so is a section that holds no threshold at all.
class ThresholdSource {
 public:
  // Throws Problem for a file or section that is not there or not usable.
  ThresholdSource(Session& session, const ThresholdOptions& options);

  // Foreign instruments store 0 for a threshold that was never set; usual limits take its place.
  TTH For(const TSorData& record) const;

 private:
  ThresholdOptions options_;
  std::unique_ptr<TIniSection> section_;  // none without a document
};

// The module's own answer: service command 0 or 1, and nothing else.
void AnalyseByModule(Session& session, LoadedRecord& loaded, TTH& thresholds, bool endsOnly);

// The most plausible of the module's answers, or the two ends of it. What the engine throws or asserts
// becomes a Problem.
void Analyse(Session& session, LoadedRecord& loaded, TTH& thresholds, bool endsOnly);

}  // namespace reflyze::cli
