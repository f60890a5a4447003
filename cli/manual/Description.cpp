// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>

#include "cli/Options.h"
#include "cli/manual/Manual.h"

namespace reflyze::cli::manual {
namespace {

// The library keeps what an option takes as "TEXT:{text,json}".
void SetValue(Option& described, const std::string& type) {
  const size_t colon = type.find(":{");
  described.value = type.substr(0, colon);
  if (colon == std::string::npos) return;
  std::string choices = type.substr(colon + 2, type.find('}', colon) - colon - 2);
  for (size_t comma = 0; comma != std::string::npos; choices.erase(0, comma + 1)) {
    comma = choices.find(',');
    described.choices.push_back(choices.substr(0, comma));
    if (comma == std::string::npos) break;
  }
}

Option DescriptionOf(const CLI::Option& option) {
  Option described;
  if (!option.get_snames().empty()) described.letter = option.get_snames().front();
  described.name = option.get_positional() ? option.get_name(true) : option.get_lnames().front();
  described.meaning = option.get_description();
  described.required = option.get_required();
  if (option.get_items_expected_max() == 0) return described;  // a flag
  SetValue(described, option.get_type_name());
  described.preset = option.get_default_str();
  described.values = std::max(1, option.get_expected_min());
  described.repeated = option.get_expected_max() > described.values;
  if (!option.get_needs().empty()) described.needs = (*option.get_needs().begin())->get_name();
  return described;
}

}  // namespace

bool Option::IsFile() const { return value == kFileValue; }

Program DescriptionOf(const CLI::App& app) {
  Program program{app.get_name(), app.get_description(), {}, {}};
  for (const CLI::Option* option : app.get_options()) program.options.push_back(DescriptionOf(*option));
  for (const CLI::App* part : app.get_subcommands({})) {
    Command command{part->get_name(), part->get_description(), part->get_footer(), {}, {}};
    for (const CLI::Option* option : part->get_options()) {
      if (option->get_lnames() == app.get_help_ptr()->get_lnames()) continue;  // stands among those of all
      auto& list = option->get_positional() ? command.arguments : command.options;
      list.push_back(DescriptionOf(*option));
    }
    program.commands.push_back(std::move(command));
  }
  return program;
}

}  // namespace reflyze::cli::manual
