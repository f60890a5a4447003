#include <CLI/CLI.hpp>
#include <memory>
#include <optional>

#include "cli/AnalysedRecord.h"
#include "cli/EngineCall.h"
#include "cli/Options.h"
#include "cli/QualityTable.h"
#include "cli/Session.h"
#include "cli/Text.h"

namespace reflyze::cli {
namespace {

struct QualityOptions {
  std::string trace;
  std::string longPulse;
  int lastPercent = 10;
  std::string format = "text";
};

void WarnIfNotLonger(Session& session, const LoadedRecord& loaded, const LoadedRecord& longer) {
  const double ns = loaded.record->FxdParams->GetNsPulse(0.0);
  const double longerNs = longer.record->FxdParams->GetNsPulse(0.0);
  if (longerNs > ns) return;
  session.Warn(longer.name + Format(": warning: its pulse of %.0f ns is no longer than the %.0f ns of %s",
                                    longerNs, ns, loaded.name.c_str()));
}

int RunQuality(Session& session, const QualityOptions& options) {
  const ThresholdSource thresholds(session, ThresholdOptions());
  AnalysedRecord loaded = LoadAnalysedRecord(session, options.trace, thresholds, false);
  std::optional<AnalysedRecord> longer;
  if (!options.longPulse.empty()) longer = LoadAnalysedRecord(session, options.longPulse, thresholds, false);
  QualityTable table;
  CallEngine(loaded.name, "judged", [&] {
    const UnmeasuredReflectances unmeasured(*loaded.record);
    table = MakeQualityTable(*loaded.record, longer ? longer->record.get() : nullptr, options.lastPercent);
  });
  table.file = loaded.given;
  if (longer) table.longPulseFile = longer->given;
  WarnOfReading(session, loaded);
  if (longer) {
    WarnOfReading(session, *longer);
    WarnIfNotLonger(session, loaded, *longer);
    WarnIfOtherWavelength(session, loaded, *longer);
  }
  session.Print(options.format == "json" ? JsonOf(table) : TextOf(table));
  return kDone;
}

}  // namespace

void AddQualityCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<QualityOptions>();
  CLI::App* command = app.add_subcommand(
      "quality", "Tell how far each event's place and loss can be trusted; analyses what has no events");
  command->add_option("TRACE", options->trace, "SOR file, or - for standard input")
      ->required()
      ->check(InputName());
  command
      ->add_option("--long-pulse", options->longPulse,
                   "The same fibre with a longer pulse, for losses within dead zones")
      ->check(InputName());
  command
      ->add_option("--last-percent", options->lastPercent,
                   "Does the fibre end in the last N percent of the range?")
      ->check(WholeNumber())
      ->check(NumberBetween(0.0, 100.0))
      ->capture_default_str();
  command->add_option("--format", options->format, "text or json")
      ->check(CLI::IsMember({"text", "json"}))
      ->capture_default_str();
  command->callback([options, &session] {
    session.command = [options](Session& running) { return RunQuality(running, *options); };
  });
}

}  // namespace reflyze::cli
