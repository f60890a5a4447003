// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "cli/Commands.h"
#include "cli/EachTrace.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "reflyze/edit.h"
#include "reflyze/report.h"

namespace reflyze::cli {
namespace {

struct EditCommand {
  std::vector<std::string> traces;
  std::vector<std::string> settings;  // as written
  std::string table;                  // CSV
  std::string output;
  bool inPlace = false, noBackup = false, dryRun = false;
  long first = 1;  // what {n} begins with
  std::string format = "text";
};

// A file that is edited, and where it goes.
struct Planned {
  EditedFile edited;
  std::vector<Output> outputs;  // none for a dry run
};

std::string SettingProblem(const std::string& text) {
  const std::size_t equals = text.find('=');
  return equals == std::string::npos || equals == 0 ? "\"" + text + "\" is not FIELD=VALUE" : "";
}

// The rows of the table by the traces that they are of: named as given, or by the last part of the name.
class Table {
 public:
  Table(Session& session, EditCommand& options) {
    if (options.table.empty()) return;
    const std::vector<char> bytes = session.Read(options.table, kLargestEditTable);
    rows_ = EditsFromCsv(options.table, {bytes.begin(), bytes.end()});
    if (options.traces.empty()) {
      for (const FileEdits& row : rows_) options.traces.push_back(row.file);
    }
    std::map<const FileEdits*, std::string> taken;
    for (const std::string& trace : options.traces) {
      const FileEdits* const row = RowOf(trace);
      if (row == nullptr)
        throw Error(ErrorKind::kUnreadable, options.table, "has no line for " + ShownName(trace));
      const auto [known, fresh] = taken.emplace(row, trace);
      if (!fresh) Wrong(options.table, *row, "is of both " + known->second + " and " + trace);
    }
    for (const FileEdits& row : rows_) {
      if (taken.count(&row) == 0)
        Wrong(options.table, row, "\"" + OneLine(row.file) + "\" is none of the traces");
    }
  }

  const FileEdits* RowOf(const std::string& trace) const {
    const auto named = [&](const std::string& name) {
      const auto found =
          std::find_if(rows_.begin(), rows_.end(), [&](const FileEdits& row) { return row.file == name; });
      return found == rows_.end() ? nullptr : &*found;
    };
    const FileEdits* const row = named(trace);
    return row != nullptr ? row : named(std::filesystem::path(trace).filename().string());
  }

 private:
  [[noreturn]] static void Wrong(const std::string& table, const FileEdits& row, const std::string& why) {
    throw Error(ErrorKind::kUnreadable, table, "line " + std::to_string(row.line) + ": " + why);
  }

  std::vector<FileEdits> rows_;
};

std::vector<FieldEdit> EditsOf(const EditCommand& options, const Table& table, const Trace& trace, long n) {
  std::vector<FieldEdit> edits;
  for (const std::string& text : options.settings) {
    const std::size_t equals = text.find('=');
    edits.push_back({text.substr(0, equals), FillPattern(text.substr(equals + 1), trace, n)});
  }
  const FileEdits* const row = table.RowOf(trace.Name());
  if (row != nullptr) edits.insert(edits.end(), row->edits.begin(), row->edits.end());
  return edits;
}

// In place, the file as it was goes beside it first, so that one of both is whole at any time.
std::vector<Output> OutputsOf(const EditCommand& options, const Trace& trace, const EditedFile& edited) {
  if (options.dryRun) return {};
  const std::string& name = trace.Name();
  if (!options.inPlace) {
    const bool folder = options.traces.size() > 1 || std::filesystem::is_directory(options.output);
    const std::string own = std::filesystem::path(name).filename().string();
    return {{folder ? (std::filesystem::path(options.output) / own).string() : options.output, edited.bytes}};
  }
  const std::string before = trace.Bytes();
  if (before == edited.bytes) return {};
  if (options.noBackup) return {{name, edited.bytes}};
  return {{name + ".bak", before}, {name, edited.bytes}};
}

void RequireOtherNames(const std::vector<Planned>& plan) {
  std::map<std::string, std::string> taken;
  for (const Planned& each : plan) {
    for (const Output& output : each.outputs) {
      const auto [known, fresh] = taken.emplace(output.name, each.edited.file);
      if (!fresh)
        throw Error(ErrorKind::kUnwritable, output.name,
                    "would be written for both " + known->second + " and " + each.edited.file);
    }
  }
}

// All files are read and edited before the first one is written: a slip in one leaves all as they were.
int RunEdit(Session& session, EditCommand& options) {
  const Table table(session, options);
  std::vector<Planned> plan;
  const int status = ForEachTrace(session, options.traces, [&](const std::string& name, std::size_t i) {
    const Trace trace = session.Open(name);
    Planned planned;
    planned.edited = Edit(trace, EditsOf(options, table, trace, options.first + static_cast<long>(i)));
    planned.outputs = OutputsOf(options, trace, planned.edited);
    planned.edited.bytes.clear();
    plan.push_back(std::move(planned));
  });
  if (status != kDone) {
    if (options.traces.size() > 1) session.Warn("nothing is written");
    return status;
  }
  RequireOtherNames(plan);
  for (const Planned& each : plan) {
    if (!each.outputs.empty()) SaveTogether(each.outputs);
  }
  std::string listing;
  for (const Planned& each : plan) {
    session.Warn(each.edited.warnings);
    listing += options.format == "json" ? JsonOf(each.edited) : TextOf(each.edited);
  }
  session.Print(listing);
  return kDone;
}

std::string FieldsHelp() {
  std::string text = "Fields:\n";
  for (const EditField& field : EditFields()) {
    const std::string name = field.name;
    text += "  " + name + std::string(name.size() < 18 ? 18 - name.size() : 1, ' ') + field.meaning + "\n";
  }
  return text +
         "In VALUE, {n} is the number of the trace, {n:03} the same with three digits, {name} the name of "
         "the\nfile, {fibre} and other fields what stands there; {{ and }} are braces.\n";
}

void CheckTogether(const EditCommand& options) {
  const auto wrong = [](const char* why) { throw CLI::ValidationError("edit", why); };
  if (options.settings.empty() && options.table.empty()) wrong("needs --set or --from");
  if (options.traces.empty() && options.table.empty())
    wrong("needs a TRACE, or --from with a column of files");
  if (!options.inPlace && !options.dryRun && options.output.empty())
    wrong("needs --in-place, --output or --dry-run");
  const bool piped = std::find(options.traces.begin(), options.traces.end(), "-") != options.traces.end();
  if (options.inPlace && piped) wrong("can't write to standard input: --in-place needs files");
  std::error_code unknown;
  if (!options.output.empty() && options.traces.size() > 1 &&
      !std::filesystem::is_directory(options.output, unknown))
    wrong("--output of several traces is a folder that is there");
}

}  // namespace

void AddEditCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<EditCommand>();
  CLI::App* command =
      app.add_subcommand("edit", "Change names, places and events of a file, and nothing else in it");
  command
      ->add_option("TRACE", options->traces,
                   "SOR file, or - for standard input; all that --from names, if none")
      ->type_name(kFileValue)
      ->check(InputName());
  command->add_option("--set", options->settings, "What is to stand in a field, see below")
      ->type_name("FIELD=VALUE")
      ->allow_extra_args(false)
      ->check(CLI::Validator([](std::string& text) { return SettingProblem(text); }, ""));
  command->add_option("--from", options->table, "CSV table: a column \"file\", and one for each field to set")
      ->type_name(kFileValue)
      ->check(InputName());
  CLI::Option* output = command
                            ->add_option("-o,--output", options->output,
                                         "File to write; of several traces, the folder for them")
                            ->type_name(kFileValue)
                            ->check(OutputName());
  CLI::Option* inPlace = command
                             ->add_flag("--in-place", options->inPlace,
                                        "Write over each file, and keep it as it was as FILE.bak")
                             ->excludes(output);
  command->add_flag("--no-backup", options->noBackup, "Keep no FILE.bak")->needs(inPlace);
  command->add_flag("--dry-run", options->dryRun, "Write nothing, and tell what would change");
  command->add_option("--first", options->first, "What {n} begins with")
      ->type_name("N")
      ->check(WholeNumber())
      ->check(NumberBetween(0.0, 1e9))
      ->capture_default_str();
  AddFormatOption(*command, options->format);
  command->footer(FieldsHelp());
  command->callback([options, &session] {
    CheckTogether(*options);
    session.command = [options](Session& running) { return RunEdit(running, *options); };
  });
}

}  // namespace reflyze::cli
