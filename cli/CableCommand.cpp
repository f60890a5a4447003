// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

#include "cli/Aside.h"
#include "cli/Commands.h"
#include "cli/Inputs.h"
#include "cli/Options.h"
#include "cli/OrderedWork.h"
#include "cli/Session.h"
#include "reflyze/cable.h"
#include "reflyze/files.h"
#include "reflyze/text.h"

namespace reflyze::cli {
namespace {

constexpr const char* kStateEnding = ".state";

struct CableCommand {
  InputArguments inputs;
  ThresholdOptions thresholds;
  AnalyseOptions analysis;
  LinkOptions link = {"", "auto", "auto"};
  bool noReels = false;
  bool resume = false;
  std::string format = "text";
  WorkOptions work;
};

// One trace of the job.
struct Outcome {
  CableTrace trace;
  int status = kDone;
  Sayings sayings;
};

// What the result of a trace rests on: its bytes, and how it is analysed.
std::string KeyOf(const std::vector<char>& bytes, const CableCommand& options) {
  std::uint64_t digest = 14695981039346656037ull;
  const auto take = [&](const char* data, size_t size) {
    for (size_t i = 0; i < size; ++i)
      digest = (digest ^ static_cast<unsigned char>(data[i])) * 1099511628211ull;
  };
  take(bytes.data(), bytes.size());
  const Thresholds& asked = options.thresholds.thresholds;
  for (const std::optional<double>& one :
       {asked.lossDb, asked.reflectanceDb, asked.endDb, asked.slopeDbPerKm})
    take(reinterpret_cast<const char*>(one ? &*one : nullptr), one ? sizeof(double) : 0), take("|", 1);
  take(options.thresholds.file.data(), options.thresholds.file.size());
  take(options.thresholds.section.data(), options.thresholds.section.size());
  return std::to_string(digest) + "\n";
}

// A result that an earlier run has left, if it is that of these bytes.
std::optional<CableTrace> Earlier(const std::string& place, const std::string& key, const std::string& name) {
  std::error_code none;
  if (!std::filesystem::exists(place, none) || !std::filesystem::exists(place + kStateEnding, none))
    return std::nullopt;
  try {
    const std::vector<char> bytes = ReadFile(place + kStateEnding);
    const std::string text(bytes.begin(), bytes.end());
    if (text.rfind(key, 0) == 0) return CableTraceFrom(text.substr(key.size()), name);
  } catch (const Error&) {
    // What can't be read is made again.
  }
  return std::nullopt;
}

CableTrace OneTrace(Session& session, const CableCommand& options, size_t index) {
  RequireFile(options.inputs.files, index);
  const std::string& name = options.inputs.files[index].name;
  std::vector<char> bytes = session.Read(name);
  const std::string place = options.inputs.places.empty() ? "" : options.inputs.places[index];
  const std::string key = place.empty() ? "" : KeyOf(bytes, options);
  if (options.resume) {
    if (std::optional<CableTrace> earlier = Earlier(place, key, name)) return std::move(*earlier);
  }
  OpenOptions open;
  open.encoding = session.encoding;
  CableTrace trace = AnalyseForCable(Trace::FromBytes(name, std::move(bytes), open), options.analysis);
  if (!place.empty()) {
    MakeFolderOf(place);
    SaveTogether({trace.table.record.To(place), {place + kStateEnding, key + StateOf(trace)}});
  }
  trace.table.record = StoredRecord();
  return trace;
}

Outcome TraceAside(Session& session, const CableCommand& options, size_t index) {
  Outcome outcome;
  const Aside aside(outcome.sayings);
  const std::string& name = options.inputs.files[index].name;
  try {
    outcome.trace = OneTrace(session, options, index);
    session.Warn(outcome.trace.table.warnings);
    return outcome;
  } catch (const Error& error) {
    outcome.trace.problem = error.what();
    outcome.status = StatusOf(error);
  } catch (const std::exception& error) {
    outcome.trace.problem = ShownName(name) + ": " + error.what();
    outcome.status = kUnreadable;
  }
  outcome.trace.file = name;
  session.Warn(outcome.trace.problem);
  return outcome;
}

bool AnyNumberFails(const CableReport& report) {
  for (const CableRow& row : report.rows) {
    for (const CableNumbers& numbers : row.wavelengths) {
      if (numbers.verdict && numbers.verdict->verdict == Verdict::kFail) return true;
    }
  }
  return false;
}

int RunCable(Session& session, CableCommand& options) {
  options.inputs.folders = true;
  SettleInputs(options.inputs);
  if (!options.inputs.output.empty() && !options.inputs.below) {
    options.inputs.below = true;
    options.inputs.places = PlacesBelow(options.inputs.output, options.inputs.files);
  }
  CableOptions asked;
  asked.limits = ReadLimits(session, options.link);
  if (!options.noReels) asked.reels = options.link.AskedReels();
  options.analysis.thresholds = options.thresholds.thresholds;
  options.analysis.document = ReadDocument(session, options.thresholds);
  const size_t total = options.inputs.files.size();
  OrderedWork<Outcome> work(total, options.work.Threads(),
                            [&](size_t index) { return TraceAside(session, options, index); });
  std::vector<CableTrace> traces;
  int status = kDone;
  for (size_t i = 0; i < total; ++i) {
    if (!options.work.quiet) session.Progress(i + 1, total, options.inputs.files[i].name);
    Outcome outcome = work.Next();
    if (!options.work.quiet) session.Progress(0, 0, "");
    for (const auto& say : outcome.sayings) say();
    status = std::max(status, outcome.status);
    traces.push_back(std::move(outcome.trace));
  }
  const CableReport report = MakeCable(traces, asked);
  session.Print(options.format == "json"  ? JsonOf(report)
                : options.format == "csv" ? CsvOf(report)
                                          : TextOf(report));
  const int worth = AnyNumberFails(report) ? kFails : report.failing > 0 ? kChanged : kDone;
  return std::max(status, worth);
}

}  // namespace

void AddCableCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<CableCommand>();
  CLI::App* command = app.add_subcommand(
      "cable", "Judge a whole cable: which traces are one fibre, one row a fibre, and the summary");
  AddInputs(*command, options->inputs, "; folders are always taken");
  CLI::Option* output = command
                            ->add_option("-o,--output", options->inputs.output,
                                         "Store each record with its event table below that folder")
                            ->type_name(kFileValue)
                            ->check(OutputName());
  command->add_flag("--resume", options->resume, "Take what an earlier run has left in that folder")
      ->needs(output);
  AddThresholdOptions(*command, options->thresholds);
  AddLinkOptions(*command, options->link);
  command->add_flag("--no-reels", options->noReels, "The traces were taken without reels");
  AddTableFormatOption(*command, options->format, "one object");
  AddWorkOptions(*command, options->work);
  command->callback([options, &session] {
    session.command = [options](Session& running) { return RunCable(running, *options); };
  });
}

}  // namespace reflyze::cli
