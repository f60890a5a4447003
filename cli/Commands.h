// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace CLI {
class App;
}

namespace reflyze::cli {

class Session;

// Each adds one command to the program, in the order of its help.
void AddAnalyseCommand(CLI::App& app, Session& session);
void AddShowCommand(CLI::App& app, Session& session);
void AddPlotCommand(CLI::App& app, Session& session);
void AddMeasureCommand(CLI::App& app, Session& session);
void AddDumpCommand(CLI::App& app, Session& session);
void AddCopyCommand(CLI::App& app, Session& session);
void AddEditCommand(CLI::App& app, Session& session);
void AddFilterCommand(CLI::App& app, Session& session);
void AddBaselineCommand(CLI::App& app, Session& session);
void AddCompareCommand(CLI::App& app, Session& session);
void AddMergeCommand(CLI::App& app, Session& session);
void AddCableCommand(CLI::App& app, Session& session);
void AddReportCommand(CLI::App& app, Session& session);
void AddQualityCommand(CLI::App& app, Session& session);
void AddSimulateCommand(CLI::App& app, Session& session);
void AddImportCommand(CLI::App& app, Session& session);
void AddViewCommand(CLI::App& app, Session& session);
void AddFleetCommand(CLI::App& app, Session& session);
void AddWatchCommand(CLI::App& app, Session& session);

constexpr void (*kCommands[])(CLI::App&, Session&) = {
    AddAnalyseCommand, AddShowCommand,  AddPlotCommand,   AddMeasureCommand,  AddDumpCommand,
    AddCopyCommand,    AddEditCommand,  AddFilterCommand, AddBaselineCommand, AddCompareCommand,
    AddMergeCommand,   AddCableCommand, AddReportCommand, AddQualityCommand,  AddSimulateCommand,
    AddImportCommand,  AddViewCommand,  AddWatchCommand,  AddFleetCommand};

// Adds all commands, and the options that each of them takes.
void DescribeProgram(CLI::App& app, Session& session);

}  // namespace reflyze::cli
