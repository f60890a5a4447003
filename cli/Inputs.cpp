// SPDX-License-Identifier: Apache-2.0
#include "cli/Inputs.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "cli/Options.h"
#include "cli/Session.h"
#include "reflyze/text.h"

namespace reflyze::cli {

CLI::Option* AddInputs(CLI::App& command, InputArguments& inputs, const std::string& what) {
  CLI::Option* traces =
      command
          .add_option("TRACE", inputs.names,
                      "SOR file, - for standard input, @FILE for a list of names, or a pattern" + what)
          ->required()
          ->type_name(kFileValue)
          ->check(InputName());
  command.add_flag("-r,--recursive", inputs.folders,
                   "Take folders too: the traces in them and in the folders below");
  return traces;
}

void SettleInputs(InputArguments& inputs) {
  InputOptions options;
  options.folders = inputs.folders;
  inputs.files = FilesOf(inputs.names, options);
  if (inputs.output.empty()) return;
  inputs.below = inputs.files.size() != 1 || inputs.names.size() != 1 ||
                 inputs.files[0].name != inputs.names[0] || inputs.output.back() == '/';
  inputs.places = inputs.below ? PlacesBelow(inputs.output, inputs.files) : std::vector{inputs.output};
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

int ForEachFile(Session& session, const InputArguments& inputs, const std::function<void(size_t)>& work) {
  int status = kDone;
  for (size_t i = 0; i < inputs.files.size(); ++i) {
    session.Progress(i + 1, inputs.files.size(), inputs.files[i].name);
    std::string wrong;
    try {
      RequireFile(inputs.files, i);
      if (inputs.below) MakeFolderOf(inputs.places[i]);
      work(i);
    } catch (const Error& error) {
      wrong = error.what();
      status = std::max<int>(status, StatusOf(error));
    } catch (const std::exception& error) {
      wrong = ShownName(inputs.files[i].name) + ": " + error.what();
      status = std::max<int>(status, kUnreadable);
    }
    session.Progress(0, 0, "");
    if (!wrong.empty()) session.Warn(wrong);
  }
  return status;
}

}  // namespace reflyze::cli
