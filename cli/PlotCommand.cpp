// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>
#include <vector>

#include "cli/Commands.h"
#include "cli/Job.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "cli/Terminal.h"
#include "reflyze/plot.h"

namespace reflyze::cli {
namespace {

struct PlotCommand {
  Job job;
  int width = 0, height = 0;  // 0: the terminal's
  bool sixel = false, letters = false;
  ThresholdOptions thresholds;
  AnalyseOptions analysis;
};

int RunPlot(Session& session, PlotCommand& options) {
  options.analysis.thresholds = options.thresholds.thresholds;
  options.analysis.document = ReadDocument(session, options.thresholds);
  const TerminalSize terminal = SizeOfTerminal();
  PlotOptions plot;
  plot.columns = options.width > 0 ? options.width : terminal.columns;
  // The line that the shell writes next belongs to the screen too.
  plot.rows = options.height > 0 ? options.height : terminal.rows - 1;
  plot.sixel = options.sixel || (!options.letters && TerminalShowsSixel());
  SettleInputs(options.job.inputs);
  return PrintJob(session, options.job, "text", "", [&](size_t index) {
    const PicturedTrace picture =
        PictureOf(session.Open(options.job.inputs.files[index].name), options.analysis);
    FileResult result;
    result.listing = PlotOf(picture, plot);
    result.warnings = picture.trace.table.warnings;
    return result;
  });
}

}  // namespace

void AddPlotCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<PlotCommand>();
  CLI::App* command =
      app.add_subcommand("plot", "Draw the curve of a trace in the terminal, with its events");
  AddJobInputs(*command, options->job, "; several give a curve each");
  command->add_option("--width", options->width, "Letters of a line; those of the terminal, if not given")
      ->type_name("N")
      ->check(NumberBetween(30, kMostPlotColumns));
  command->add_option("--height", options->height, "Lines; those of the terminal, if not given")
      ->type_name("N")
      ->check(NumberBetween(10, kMostPlotRows));
  CLI::Option* sixel =
      command->add_flag("--sixel", options->sixel, "As a picture, for terminals that show sixels");
  command->add_flag("--letters", options->letters, "As letters, also where the terminal shows pictures")
      ->excludes(sixel);
  AddThresholdOptions(*command, options->thresholds);
  command->callback([options, &session] {
    session.command = [options](Session& running) { return RunPlot(running, *options); };
  });
}

}  // namespace reflyze::cli
