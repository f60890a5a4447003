// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "cli/Commands.h"
#include "cli/Job.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "reflyze/cable.h"
#include "reflyze/limits.h"
#include "reflyze/merge.h"
#include "reflyze/report.h"
#include "reflyze/span.h"

namespace reflyze::cli {
namespace {

struct MergeCommand {
  Job job;                           // its files are the traces from the first end
  std::vector<std::string> others;   // from the other end, one each
  std::vector<std::string> outputs;  // two files, or one folder
  std::vector<std::string> otherPlaces;
  ThresholdOptions thresholds;
  LinkOptions link;
  std::optional<Limits> limits;  // of its document
  MergeOptions merge;
  std::string format = "text";
};

FileResult MergePair(Session& session, const MergeCommand& options, size_t index) {
  const InputArguments& inputs = options.job.inputs;
  Trace a = session.Open(inputs.files[index].name), b = session.Open(options.others[index]);
  MergedLink link = MergeLink(std::move(a), std::move(b), options.link.AskedReels(), options.merge);
  if (options.limits) link.verdict = Judge(link, *options.limits);
  FileResult result;
  result.outputs = {link.table.recordA.To(inputs.places[index]),
                    link.table.recordB.To(options.otherPlaces[index])};
  result.warnings = link.table.warnings;
  result.listing = ListingOf(link, options.format);
  if (link.verdict && link.verdict->verdict == Verdict::kFail) result.status = kFails;
  return result;
}

void TakeTwo(MergeCommand& options) {
  InputArguments& inputs = options.job.inputs;
  inputs.files = {{inputs.names[0], inputs.names[0], ""}};
  inputs.places = {options.outputs[0]};
  options.others = {inputs.names[1]};
  options.otherPlaces = {options.outputs[1]};
}

// Finds the two directions of each fibre in a job. What can't be read, and what has no partner, costs its
// line and the status. Gives the status of the reading.
int PairUp(Session& session, MergeCommand& options) {
  InputArguments& inputs = options.job.inputs;
  inputs.folders = inputs.below = true;
  inputs.output = options.outputs[0];
  inputs.files = FilesOf(inputs.names, {inputs.folders, InputOptions().endings});
  const std::vector<std::string> places = PlacesBelow(inputs.output, inputs.files);
  std::map<std::string, size_t> indices;
  for (size_t i = 0; i < inputs.files.size(); ++i) indices[inputs.files[i].name] = i;
  std::vector<CableTrace> traces(inputs.files.size());
  Job reading;
  reading.inputs.files = inputs.files;
  reading.work = options.job.work;
  int status = RunJob(
      session, reading,
      [&](size_t i) {
        traces[i] = ReadForCable(session.Open(inputs.files[i].name));
        return FileResult();
      },
      [&](size_t i, const FileResult& result) { traces[i].problem = result.problem; });
  const DirectionPairs found = PairDirections(traces);
  for (const std::string& finding : found.findings) session.Warn(finding);
  size_t read = 0, paired = 0;
  for (const CableTrace& trace : traces) read += trace.problem.empty() ? 1 : 0;
  std::vector<InputFile> files;
  for (const DirectionPair& pair : found.pairs) {
    paired += (pair.fileA.empty() ? 0 : 1) + (pair.fileB.empty() ? 0 : 1);
    const bool both = !pair.fileA.empty() && !pair.fileB.empty();
    const std::string& first = pair.fileA.empty() ? pair.fileB : pair.fileA;
    files.push_back({first, first, both ? "" : "has no trace from the other end"});
    inputs.places.push_back(places[indices.at(first)]);
    options.others.push_back(pair.fileB);
    options.otherPlaces.push_back(both ? places[indices.at(pair.fileB)] : "");
  }
  inputs.files = std::move(files);
  // What was left out, as a copy or for want of a fibre, was said above; nothing is made of it either.
  if (paired < read) status = std::max<int>(status, kUnreadable);
  return status;
}

int RunMerge(Session& session, MergeCommand& options) {
  options.merge.thresholds = options.thresholds.thresholds;
  options.merge.document = ReadDocument(session, options.thresholds);
  options.limits = ReadLimits(session, options.link);
  int status = kDone;
  if (options.outputs.size() == 2) {
    TakeTwo(options);
  } else {
    status = PairUp(session, options);
  }
  options.job.reads = [&](size_t index) {
    return std::vector<std::string>{options.job.inputs.files[index].name, options.others[index]};
  };
  return std::max(status,
                  PrintJob(session, options.job, options.format, MergedCsvHeader(options.limits.has_value()),
                           [&](size_t index) { return MergePair(session, options, index); }));
}

void CheckTogether(const MergeCommand& options) {
  const std::vector<std::string>& names = options.job.inputs.names;
  if (options.outputs.size() == 2) {
    if (names.size() != 2) throw CLI::ValidationError("merge", "takes two traces, from both ends of a fibre");
    if (NameTheSame(options.outputs[0], options.outputs[1]))
      throw CLI::ValidationError("--output", "takes two different files");
  } else if (std::find(names.begin(), names.end(), "-") != names.end()) {
    throw CLI::ValidationError("merge", "can't find a partner for standard input");
  }
}

}  // namespace

void AddMergeCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<MergeCommand>();
  CLI::App* command = app.add_subcommand(
      "merge",
      "Bring the events of both directions of a fibre together; with thresholds, analyse both first");
  AddJobInputs(*command, options->job,
               ": the one from the first end and the one from the other; or all of a job, with a folder as "
               "output");
  CLI::Option* output =
      command
          ->add_option("-o,--output", options->outputs,
                       "Store both records with their merged events: two files, or the folder for those of a "
                       "job")
          ->required()
          ->expected(1, 2)
          ->type_name(kFileValue)
          ->check(OutputName());
  AddResume(*command, options->job, output);
  AddThresholdOptions(*command, options->thresholds);
  AddLinkOptions(*command, options->link);
  AddTableFormatOption(*command, options->format);
  command->callback([options, &session] {
    CheckTogether(*options);
    session.command = [options](Session& running) { return RunMerge(running, *options); };
  });
}

}  // namespace reflyze::cli
