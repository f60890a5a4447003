// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "cli/Commands.h"
#include "cli/Job.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "reflyze/edit.h"
#include "reflyze/report.h"
#include "reflyze/text.h"

namespace reflyze::cli {
namespace {

struct EditCommand {
  Job job;
  std::vector<std::string> settings;  // as written
  std::string table;                  // CSV
  bool inPlace = false, noBackup = false, dryRun = false;
  long first = 1;  // what {n} begins with
  std::string format = "text";
};

std::string FieldProblem(const std::string& text) {
  const std::size_t equals = text.find('=');
  return equals == std::string::npos || equals == 0 ? "\"" + text + "\" is not FIELD=VALUE" : "";
}

// The rows of the table by the traces that they are of: named as given, or by the last part of the name.
class Table {
 public:
  Table(Session& session, const std::string& name) : name_(name) {
    if (name.empty()) return;
    const std::vector<char> bytes = session.Read(name, kLargestEditTable);
    rows_ = EditsFromCsv(name, {bytes.begin(), bytes.end()});
  }

  std::vector<std::string> Files() const {
    std::vector<std::string> files;
    for (const FileEdits& row : rows_) files.push_back(row.file);
    return files;
  }

  // Each trace needs its row, and each row its trace: else a slip in a name would pass unseen.
  void RequireAll(const std::vector<InputFile>& files) const {
    if (name_.empty()) return;
    std::map<const FileEdits*, std::string> taken;
    for (const InputFile& file : files) {
      if (!file.problem.empty()) continue;
      const FileEdits* const row = RowOf(file.name);
      if (row == nullptr)
        throw Error(ErrorKind::kUnreadable, name_, "has no line for " + ShownName(file.name));
      const auto [known, fresh] = taken.emplace(row, file.name);
      if (!fresh) Wrong(*row, "is of both " + known->second + " and " + file.name);
    }
    for (const FileEdits& row : rows_) {
      if (taken.count(&row) == 0) Wrong(row, "\"" + OneLine(row.file) + "\" is none of the traces");
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
  [[noreturn]] void Wrong(const FileEdits& row, const std::string& why) const {
    throw Error(ErrorKind::kUnreadable, name_, "line " + std::to_string(row.line) + ": " + why);
  }

  const std::string name_;
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
std::vector<Output> OutputsOf(const EditCommand& options, const Trace& trace, std::size_t index,
                              const EditedFile& edited) {
  if (options.dryRun) return {};
  const std::string& name = trace.Name();
  if (!options.inPlace) return {{options.job.inputs.places[index], edited.bytes}};
  const std::string before = trace.Bytes();
  if (before == edited.bytes) return {};
  if (options.noBackup) return {{name, edited.bytes}};
  return {{name + ".bak", before}, {name, edited.bytes}};
}

// In place, no file may be the backup of another one, or stand there twice.
void RequireOtherNames(const EditCommand& options) {
  if (!options.inPlace || options.dryRun) return;
  std::set<std::string> taken;
  for (const InputFile& file : options.job.inputs.files) {
    std::error_code unknown;
    const std::string path = std::filesystem::weakly_canonical(file.name, unknown).string();
    const std::string name = unknown ? file.name : path;
    if (!file.problem.empty()) continue;
    if (!taken.insert(name).second || (!options.noBackup && !taken.insert(name + ".bak").second))
      throw Error(ErrorKind::kUsage, file.name, "would be written twice; nothing is written");
  }
}

EditedFile EditTrace(const EditCommand& options, const Table& table, const Trace& trace, std::size_t index) {
  return Edit(trace, EditsOf(options, table, trace, options.first + static_cast<long>(index)));
}

// What is asked for is tried on every file before the first one is written, so that a slip in a field or
// value leaves all as they were. A file that can't be read is no slip: the run over all of them tells.
void TryAll(Session& session, const EditCommand& options, const Table& table) {
  const std::vector<InputFile>& files = options.job.inputs.files;
  if (files.size() < 2 || options.dryRun) return;
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (files[i].name == "-" || !files[i].problem.empty()) continue;
    try {
      EditTrace(options, table, session.Open(files[i].name), i);
    } catch (const Error& error) {
      if (error.kind() == ErrorKind::kUsage)
        throw Error(ErrorKind::kUsage, error.file(), error.sentence() + "; nothing is written");
    }
  }
}

int RunEdit(Session& session, EditCommand& options) {
  InputArguments& inputs = options.job.inputs;
  const Table table(session, options.table);
  if (inputs.names.empty()) inputs.names = table.Files();
  if (options.dryRun) inputs.output.clear();
  SettleInputs(inputs);
  table.RequireAll(inputs.files);
  RequireOtherNames(options);
  TryAll(session, options, table);
  return PrintJob(session, options.job, "", "", [&](std::size_t index) {
    const Trace trace = session.Open(inputs.files[index].name);
    const EditedFile edited = EditTrace(options, table, trace, index);
    FileResult result;
    result.listing = options.format == "json" ? JsonOf(edited) : TextOf(edited);
    result.warnings = edited.warnings;
    result.outputs = OutputsOf(options, trace, index, edited);
    return result;
  });
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
  const InputArguments& inputs = options.job.inputs;
  if (options.settings.empty() && options.table.empty()) wrong("needs --set or --from");
  if (inputs.names.empty() && options.table.empty()) wrong("needs a TRACE, or --from with a column of files");
  if (!options.inPlace && !options.dryRun && inputs.output.empty())
    wrong("needs --in-place, --output or --dry-run");
  const bool piped = std::find(inputs.names.begin(), inputs.names.end(), "-") != inputs.names.end();
  if (options.inPlace && piped) wrong("can't write to standard input: --in-place needs files");
}

}  // namespace

void AddEditCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<EditCommand>();
  CLI::App* command =
      app.add_subcommand("edit", "Change names, places and events of a file, and nothing else in it");
  options->job.byNumber = true;  // {n}
  AddJobInputs(*command, options->job, "; all that --from names, if none")->required(false);
  command->add_option("--set", options->settings, "What is to stand in a field, see below")
      ->type_name("FIELD=VALUE")
      ->allow_extra_args(false)
      ->check(CLI::Validator([](std::string& text) { return FieldProblem(text); }, ""));
  command->add_option("--from", options->table, "CSV table: a column \"file\", and one for each field to set")
      ->type_name(kFileValue)
      ->check(InputName());
  CLI::Option* output =
      AddJobOutput(*command, options->job, "File to write; of several traces, the folder for them");
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
