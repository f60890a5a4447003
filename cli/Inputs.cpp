// SPDX-License-Identifier: Apache-2.0
#include "cli/Inputs.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>

#include "cli/Options.h"
#include "reflyze/text.h"

namespace reflyze::cli {

namespace fs = std::filesystem;

void AddFolders(CLI::App& command, InputArguments& inputs) {
  command.add_flag("-r,--recursive", inputs.folders,
                   "Take folders too: the traces in them and in the folders below");
}

CLI::Option* AddInputs(CLI::App& command, InputArguments& inputs, const std::string& what) {
  CLI::Option* traces =
      command
          .add_option("TRACE", inputs.names,
                      "SOR file, - for standard input, @FILE for a list of names, or a pattern" + what)
          ->required()
          ->type_name(kFileValue)
          ->check(InputName());
  AddFolders(command, inputs);
  return traces;
}

namespace {

bool IsBelow(const fs::path& path, const fs::path& folder) {
  const auto [at, rest] = std::mismatch(folder.begin(), folder.end(), path.begin(), path.end());
  return at == folder.end() && rest != path.end();
}

// Where the results lie inside a folder of traces they are no part of the next run.
void LeaveOutResults(InputArguments& inputs) {
  std::error_code unknown;
  fs::path output = fs::weakly_canonical(inputs.output, unknown);
  if (output.filename().empty()) output = output.parent_path();
  if (!inputs.folders || inputs.output.empty() || unknown) return;
  const auto isResult = [&](const InputFile& file) {
    const bool walked =
        file.problem.empty() && file.name != file.below && file.name.size() > file.below.size();
    if (!walked) return false;
    std::error_code none;
    const fs::path path = fs::weakly_canonical(file.name, none);
    const fs::path root =
        fs::weakly_canonical(file.name.substr(0, file.name.size() - file.below.size()) + ".", none);
    return !none && IsBelow(output, root) && IsBelow(path, output) && IsBelow(path, root);
  };
  inputs.files.erase(std::remove_if(inputs.files.begin(), inputs.files.end(), isResult), inputs.files.end());
}

}  // namespace

void SettleInputs(InputArguments& inputs) {
  InputOptions options;
  options.folders = inputs.folders;
  if (!inputs.endings.empty()) options.endings = inputs.endings;
  inputs.files = FilesOf(inputs.names, options);
  if (inputs.output.empty()) return;
  LeaveOutResults(inputs);
  inputs.below = inputs.files.size() != 1 || inputs.names.size() != 1 ||
                 inputs.files[0].name != inputs.names[0] || inputs.output.back() == '/';
  inputs.places = {inputs.output};
  if (!inputs.below) return;
  std::vector<InputFile> results = inputs.files;
  for (InputFile& result : results) {
    if (!inputs.ending.empty())
      result.below = fs::path(result.below).replace_extension(inputs.ending).string();
  }
  inputs.places = PlacesBelow(inputs.output, results);
}

void RequireFile(const std::vector<InputFile>& files, size_t index) {
  const InputFile& file = files[index];
  if (!file.problem.empty()) throw Error(ErrorKind::kUnreadable, file.name, file.problem);
  if (file.name != "-") return;
  const auto first =
      std::find_if(files.begin(), files.end(), [](const InputFile& other) { return other.name == "-"; });
  if (first != files.begin() + static_cast<long>(index))
    throw Error(ErrorKind::kUnreadable, ShownName("-"), "was read for an earlier trace");
}

}  // namespace reflyze::cli
