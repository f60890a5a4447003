#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <vector>

#include "cli/EngineCall.h"
#include "cli/FilterTable.h"
#include "cli/Options.h"
#include "cli/RecordFile.h"
#include "cli/Session.h"
#include "cli/UsableTrace.h"
#include "ref/math/ref_Math.h"

namespace reflyze::cli {
namespace {

struct FilterOptions {
  std::string trace;
  std::string output;
  std::string kind = NameOf(FilterKind::kAuto);
  std::optional<double> level;
  std::string format = "text";
};

// The levels that a record's field can hold.
constexpr double kLeastLevel = 0.1;
constexpr double kLargestLevel = 10.0;

FilterKind KindOf(const std::string& name) {
  for (const FilterKind kind : {FilterKind::kKernel, FilterKind::kFast}) {
    if (name == NameOf(kind)) return kind;
  }
  return FilterKind::kAuto;
}

void RequireRawTrace(const LoadedRecord& loaded) {
  constexpr int kFinal = 1;  // state of the filter story
  if (loaded.record->QRTParams->DataPointsFiltered == kFinal) {
    throw Problem(kUnreadable, loaded.name + ": is smoothed already, and its raw points are gone");
  }
  if (RefEmbGetLinf(loaded.record.get()) == nullptr) {
    throw Problem(kUnreadable, loaded.name + ": holds no backscatter to smooth");
  }
}

// One coefficient, or fewer, is no kernel: one that suits the pulse takes its place.
void GiveKernel(TSorData& record, TSorFilter& filter) {
  if (record.QRTParams->TMC > 1) return;
  record.QRTParams->SetTMC(0);
  filter.SetLvlK(record.QRTParams->GetFilterLevel());
}

// Leaves the record with smoothed levels only: a file holds one trace.
FilterTable Smooth(LoadedRecord& loaded, const FilterOptions& options) {
  TSorData& record = *loaded.record;
  TSorBlockQRTParameters& params = *record.QRTParams;
  if (options.level) params.SetFilterLevel(*options.level, params.isDynFilter() ? 1 : 0);
  std::vector<TFEvent> events(static_cast<size_t>(kMostFilterEvents));
  std::vector<short> pointMap(static_cast<size_t>(record.DataPts->GetPointsNum()));
  TSorFilter filter(&record);
  filter.result.events = events.data();
  filter.result.pointMap = pointMap.data();
  const FilterKind kind = KindOf(options.kind);
  if (kind == FilterKind::kKernel) GiveKernel(record, filter);
  filter.SetFilter(static_cast<int>(kind));
  if (filter.result.count < 0) {
    throw Problem(kUnreadable, loaded.name + ": is a trace that the automatic filter cannot work on");
  }
  filter.AutoFilterCalcNoise();
  filter.EraseFilterStory();
  return MakeFilterTable(loaded.given, kind, record, filter.result);
}

int RunFilter(Session& session, const FilterOptions& options) {
  LoadedRecord loaded = LoadRecord(session, options.trace, NeedPoints::kYes);
  RequireRawTrace(loaded);
  FilterTable table;
  CallEngine(loaded.name, "smoothed", [&] { table = Smooth(loaded, options); });
  SaveRecord(*loaded.record, options.output);
  WarnOfFile(session, loaded);
  session.Print(options.format == "json" ? JsonOf(table) : TextOf(table));
  return kDone;
}

}  // namespace

void AddFilterCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<FilterOptions>();
  CLI::App* command = app.add_subcommand("filter", "Smooth a trace and print what the filter found");
  command->add_option("TRACE", options->trace, "SOR file, or - for standard input")
      ->required()
      ->check(InputName());
  command->add_option("-o,--output", options->output, "Store the trace with its smoothed levels")
      ->required()
      ->check(OutputName());
  command
      ->add_option("--kind", options->kind,
                   "auto: a mean that stops at events; fast: a low pass; kernel: the trace's own, if any")
      ->check(CLI::IsMember({"auto", "fast", "kernel"}))
      ->capture_default_str();
  command->add_option("--level", options->level, "Strength of the filter, 1 is usual; without it the trace's")
      ->transform(NumberBetween(kLeastLevel, kLargestLevel));
  command->add_option("--format", options->format, "text or json")
      ->check(CLI::IsMember({"text", "json"}))
      ->capture_default_str();
  command->callback([options, &session] {
    session.command = [options](Session& running) { return RunFilter(running, *options); };
  });
}

}  // namespace reflyze::cli
