#include <CLI/CLI.hpp>
#include <memory>
#include <vector>

#include "cli/AnalysedRecord.h"
#include "cli/Directions.h"
#include "cli/EngineCall.h"
#include "cli/MergeTable.h"
#include "cli/Options.h"
#include "cli/OutputFile.h"
#include "cli/Session.h"
#include "cli/StoredBlocks.h"
#include "cli/Text.h"
#include "ref/events/refEvent.h"

namespace reflyze::cli {
namespace {

struct MergeOptions {
  std::string traceA, traceB;
  std::vector<std::string> outputs;  // two
  ThresholdOptions thresholds;
  std::string format = "text";

  // Thresholds are given for an analysis, so there is to be one.
  bool AnalyseAnew() const {
    return thresholds.ltDb || thresholds.rtDb || thresholds.etDb || thresholds.ctDbPerKm ||
           !thresholds.file.empty();
  }
};

// Why two traces are no two directions of one fibre, as a merge has found; the ends as they stood before it.
[[noreturn]] void RefuseMerge(int code, const LoadedRecord& a, double endA, const LoadedRecord& b,
                              double endB) {
  const TSorBlockFixedParameters &fixedA = *a.record->FxdParams, &fixedB = *b.record->FxdParams;
  std::string why =
      Format(": its fibre ends at %.4f km, and that of %s at %.4f km: too far apart for one fibre", endB,
             a.name.c_str(), endA);
  if (code == 1) {
    why =
        Format(": was measured with a pulse of %.0f ns, and %s with one of %.0f ns; both must have the same",
               fixedB.GetNsPulse(0.0), a.name.c_str(), fixedA.GetNsPulse(0.0));
  } else if (code == 2) {
    why = Format(": has its points %.4f m apart, and %s %.4f m; both must have the same spacing",
                 fixedB.LenDS() * 1000.0, a.name.c_str(), fixedA.LenDS() * 1000.0);
  } else if (endA == endB) {
    throw Problem(kUnreadable, a.name + ": nothing in it says how far the place of its end can be trusted");
  }
  throw Problem(kUnreadable, b.name + why);
}

double EndKm(const LoadedRecord& loaded) {
  const TSorBlockKeyEvents& table = *loaded.record->KeyEvents;
  if (table.ListedEvents() < 2)
    throw Problem(kUnreadable, loaded.name + ": has no two events, launch and end of the fibre");
  return loaded.record->OwtToLen(table.EventAt(table.ListedEvents() - 1).EPT);
}

// The blocks that follow the event table take in what the merge has put there.
void TellInsertedEvents(TSorData& record, const OwnEvents& own) {
  const int count = record.KeyEvents->ListedEvents();
  for (int i = 0; i < count; ++i) {
    if (own.count(&record.KeyEvents->EventAt(i)) > 0) continue;
    record.RFTSParams->OnKeyEventAdd(i);
    record.RFTSEvents->OnKeyEventAdd(i);
    record.LnkParams->OnKeyEventAdd(i);
  }
  if (own.size() < static_cast<size_t>(count)) RefEventENSync(&record);
}

MergedTable Merge(LoadedRecord& a, LoadedRecord& b) {
  const double endA = EndKm(a), endB = EndKm(b);
  const OwnEvents ownA = OwnEventsOf(*a.record), ownB = OwnEventsOf(*b.record);
  MergedTable table;
  CallEngine(a.name + ", " + b.name, "merged", [&] {
    int code = 0;
    {
      const UnmeasuredReflectances unmeasuredA(*a.record), unmeasuredB(*b.record);
      code = MatchBiDir(a.record.get(), b.record.get());
    }
    if (code != 0) RefuseMerge(code, a, endA, b, endB);
    TellInsertedEvents(*a.record, ownA);
    TellInsertedEvents(*b.record, ownB);
    table = MakeMergedTable(*a.record, ownA, *b.record, ownB);
    AverageBiDir(a.record.get(), b.record.get());
    TakeMeanLosses(*a.record, table);
  });
  table.fileA = a.given;
  table.fileB = b.given;
  return table;
}

int RunMerge(Session& session, const MergeOptions& options) {
  const ThresholdSource thresholds(session, options.thresholds);
  AnalysedRecord a = LoadAnalysedRecord(session, options.traceA, thresholds, options.AnalyseAnew());
  AnalysedRecord b = LoadAnalysedRecord(session, options.traceB, thresholds, options.AnalyseAnew());
  RequireTwoTraces(a, b);
  const std::vector<std::string> doubts = DoubtsOfTwoDirections(a, b);
  const MergedTable table = Merge(a, b);
  const std::string &outputA = options.outputs[0], &outputB = options.outputs[1];
  SaveTogether({{outputA, RecordBytes(*a.record, outputA)}, {outputB, RecordBytes(*b.record, outputB)}});
  for (const AnalysedRecord* analysed : {&a, &b}) {
    WarnOfReading(session, *analysed);
    WarnOfSecondTable(session, *analysed);
  }
  WarnIfOtherWavelength(session, a, b);
  for (const std::string& doubt : doubts) session.Warn(b.name + ": warning: " + doubt);
  session.Print(options.format == "json" ? JsonOf(table) : TextOf(table));
  return kDone;
}

}  // namespace

void AddMergeCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<MergeOptions>();
  CLI::App* command = app.add_subcommand(
      "merge",
      "Bring the events of both directions of a fibre together; with thresholds, analyse both first");
  command->add_option("A", options->traceA, "SOR file from the first end, or - for standard input")
      ->required()
      ->check(InputName());
  command->add_option("B", options->traceB, "SOR file from the other end")->required()->check(InputName());
  command->add_option("-o,--output", options->outputs, "Store both records with their merged events")
      ->required()
      ->expected(2)
      ->check(OutputName());
  AddThresholdOptions(*command, options->thresholds);
  command->add_option("--format", options->format, "text or json")
      ->check(CLI::IsMember({"text", "json"}))
      ->capture_default_str();
  command->callback([options, &session] {
    if (NameTheSame(options->outputs[0], options->outputs[1])) {
      throw CLI::ValidationError("--output", "takes two different files");
    }
    session.command = [options](Session& running) { return RunMerge(running, *options); };
  });
}

}  // namespace reflyze::cli
