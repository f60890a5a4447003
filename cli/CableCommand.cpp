// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

#include "cli/Commands.h"
#include "cli/Job.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "reflyze/cable.h"
#include "reflyze/files.h"

namespace reflyze::cli {
namespace {

struct CableCommand {
  Job job;
  ThresholdOptions thresholds;
  AnalyseOptions analysis;
  LinkOptions link = {"", "auto", "auto"};
  bool noReels = false;
  std::string format = "text";
};

// A trace of the job: the digest of its record as the analysis has left it, and the text that its listing
// will be made from, so that a job that was killed goes on with those that are there. The record is written
// at once and once more when the reels of the job are known: both together would not fit into memory.
FileResult OneTrace(Session& session, const CableCommand& options, size_t index) {
  const InputArguments& inputs = options.job.inputs;
  const CableTrace trace = AnalyseForCable(session.Open(inputs.files[index].name), options.analysis);
  FileResult result;
  result.warnings = trace.table.warnings;
  std::string digest;
  if (!inputs.places.empty()) {
    const Output output = trace.table.record.To(inputs.places[index]);
    MakeFolderOf(output.name);
    SaveTogether({output});
    digest = DigestOf(output.bytes);
  }
  result.listing = digest + "\n" + StateOf(trace);
  return result;
}

CableTrace TraceOf(const FileResult& result, const std::string& name) {
  if (result.problem.empty())
    return CableTraceFrom(result.listing.substr(result.listing.find('\n') + 1), name);
  CableTrace trace;
  trace.file = name;
  trace.problem = result.problem;
  return trace;
}

// A stored record between the reels of the job, as `analyse` stores one: it counts from its first connector.
FileResult WithSpan(Session& session, const CableCommand& options, size_t index, const CableTrace& analysed,
                    const std::string& digest, const Reels& reels) {
  const std::string& place = options.job.inputs.places[index];
  std::string bytes;
  try {
    const std::vector<char> read = ReadFile(place);
    bytes.assign(read.begin(), read.end());
  } catch (const Error&) {
    // It is made again.
  }
  // An earlier run may have left it with other reels, or somebody has changed it.
  if (DigestOf(bytes) != digest) OneTrace(session, options, index);
  EventTable table = analysed.table;
  table.warnings.clear();
  table.record = StoredEvents(session.Open(place)).record;
  const LinkTable link = BetweenReels(std::move(table), reels);
  FileResult result;
  result.outputs = {link.span ? link.table.record.To(place) : Output{place, session.Open(place).Bytes()}};
  result.warnings = link.table.warnings;
  return result;
}

// Stores the reels with every record. What an earlier run has stored with the same reels stays.
int StoreSpans(Session& session, const CableCommand& options, const std::vector<CableTrace>& traces,
               const std::vector<std::string>& digests, const Reels& reels) {
  if (options.job.inputs.places.empty()) return kDone;
  Job spans = options.job;
  spans.resume = true;
  char stage[64];
  std::snprintf(stage, sizeof stage, "reels %.9g %.9g", reels.launch ? reels.launchKm.value_or(-1.0) : 0.0,
                reels.receive ? reels.receiveKm.value_or(-1.0) : 0.0);
  spans.stage = stage;
  for (size_t i = 0; i < traces.size(); ++i) {
    if (!traces[i].problem.empty()) spans.skipped.insert(i);
  }
  return RunJob(
      session, spans,
      [&](size_t index) { return WithSpan(session, options, index, traces[index], digests[index], reels); },
      [](size_t, const FileResult&) {});
}

int RunCable(Session& session, CableCommand& options) {
  InputArguments& inputs = options.job.inputs;
  inputs.folders = true;
  SettleInputs(inputs);
  if (!inputs.output.empty() && !inputs.below) {
    inputs.below = true;
    inputs.places = PlacesBelow(inputs.output, inputs.files);
  }
  CableOptions asked;
  asked.limits = ReadLimits(session, options.link);
  if (!options.noReels) asked.reels = options.link.AskedReels();
  options.analysis.thresholds = options.thresholds.thresholds;
  options.analysis.document = ReadDocument(session, options.thresholds);
  std::vector<CableTrace> traces;
  std::vector<std::string> digests;
  int status = RunJob(
      session, options.job, [&](size_t index) { return OneTrace(session, options, index); },
      [&](size_t index, const FileResult& result) {
        traces.push_back(TraceOf(result, inputs.files[index].name));
        digests.push_back(result.listing.substr(0, result.listing.find('\n')));
      });
  const CableReport report = MakeCable(traces, asked);
  status = std::max(status, StoreSpans(session, options, traces, digests, report.reels));
  session.Print(ListingOf(report, options.format));
  const int worth = AnyNumberFails(report) ? kFails : report.failing > 0 ? kChanged : kDone;
  return std::max(status, worth);
}

}  // namespace

void AddCableCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<CableCommand>();
  CLI::App* command = app.add_subcommand(
      "cable", "Judge a whole cable: which traces are one fibre, one row a fibre, and the summary");
  AddJobInputs(*command, options->job, "; folders are always taken");
  AddJobOutput(*command, options->job, "Store each record with its event table below that folder");
  options->job.apart = {"limits", "launch", "receive", "no-reels", "format"};
  AddThresholdOptions(*command, options->thresholds);
  AddLinkOptions(*command, options->link);
  command->add_flag("--no-reels", options->noReels, "The traces were taken without reels");
  AddTableFormatOption(*command, options->format, "one object");
  command->callback([options, &session] {
    session.command = [options](Session& running) { return RunCable(running, *options); };
  });
}

}  // namespace reflyze::cli
