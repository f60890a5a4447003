// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>
#include <vector>

#include "cli/Commands.h"
#include "cli/EachTrace.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "reflyze/report.h"

namespace reflyze::cli {
namespace {

struct ShowCommand {
  std::vector<std::string> traces;
  SheetOptions sheet;
  bool curve = false;  // the points instead of the sheet
  std::string format = "text";
};

std::string Listing(const Sheet& sheet, const std::string& format) {
  if (format == "json") return JsonOf(sheet);
  return format == "csv" ? CsvOf(sheet) : TextOf(sheet);
}

// A heading before the first listing, and an empty line between texts.
std::string Before(const ShowCommand& options, bool first) {
  if (options.curve) return first ? CurveCsvHeader(options.traces.size() > 1) : "";
  if (options.format == "csv")
    return first ? SheetCsvHeader(options.sheet.measure ? Measurement::kDone : Measurement::kNone) : "";
  return first || options.format == "json" ? "" : "\n";
}

int RunShow(Session& session, const ShowCommand& options) {
  bool first = true;
  return ForEachTrace(session, options.traces, [&](const std::string& name, size_t) {
    const Trace trace = session.Open(name);
    std::string listing;
    if (options.curve) {
      listing = CurveCsv(trace, options.traces.size() > 1);
      session.Warn(trace.Warnings());
    } else {
      const Sheet sheet = SheetOf(trace, options.sheet);
      session.Warn(sheet.warnings);
      listing = Listing(sheet, options.format);
    }
    session.Print(Before(options, first) + listing);
    first = false;
  });
}

}  // namespace

void AddShowCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<ShowCommand>();
  CLI::App* command =
      app.add_subcommand("show", "Show what a file says of itself: its card and its own event table");
  command
      ->add_option("TRACE", options->traces, "SOR file, or - for standard input; several give a sheet each")
      ->required()
      ->type_name(kFileValue)
      ->check(InputName());
  CLI::Option* measure = command->add_flag("--measure", options->sheet.measure,
                                           "Set beside it what is measured on the trace, with differences");
  CLI::Option* format =
      command->add_option("--format", options->format, "text, json (one object a line) or csv")
          ->check(CLI::IsMember({"text", "json", "csv"}))
          ->capture_default_str();
  command
      ->add_flag("--curve", options->curve,
                 "Write the points instead, as CSV of distance (km) and level (dB)")
      ->excludes(measure)
      ->excludes(format);
  command->callback([options, &session] {
    session.command = [options](Session& running) { return RunShow(running, *options); };
  });
}

}  // namespace reflyze::cli
