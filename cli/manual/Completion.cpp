// SPDX-License-Identifier: Apache-2.0
#include <string>
#include <vector>

#include "cli/manual/Manual.h"

namespace reflyze::cli::manual {
namespace {

const char kMade[] = "made by reflyze_manual from the options of the program.\n";

std::string Joined(const std::vector<std::string>& words, const std::string& between) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : between) + word;
  return text;
}

// "-o" and "--output", as they are typed.
std::vector<std::string> NamesOf(const Option& option) {
  std::vector<std::string> names;
  if (!option.letter.empty()) names.push_back("-" + option.letter);
  names.push_back("--" + option.name);
  return names;
}

std::vector<std::string> NamesOf(const std::vector<Command>& commands) {
  std::vector<std::string> names;
  names.reserve(commands.size());
  for (const Command& command : commands) names.push_back(command.name);
  return names;
}

// `text` with a backslash before each of `letters`.
std::string Escaped(const std::string& text, const std::string& letters) {
  std::string escaped;
  for (const char letter : text)
    escaped += (letters.find(letter) == std::string::npos ? "" : "\\") + std::string(1, letter);
  return escaped;
}

// Within single quotes of zsh, where a quote must end them and begin them again.
std::string ZshQuoted(const std::string& text) {
  std::string quoted;
  for (const char letter : text) quoted += letter == '\'' ? "'\\''" : std::string(1, letter);
  return "'" + quoted + "'";
}

std::string FishQuoted(const std::string& text) { return "'" + Escaped(text, "\\'") + "'"; }

// What may stand behind each option of a list, as the cases of a bash "case".
std::string BashCases(const std::vector<Option>& options) {
  std::string cases;
  for (const Option& option : options) {
    if (option.value.empty()) continue;
    const std::string what = option.IsFile()          ? "files=yes"
                             : option.choices.empty() ? "return"
                                                      : "words=\"" + Joined(option.choices, " ") + "\"";
    cases += "        " + Joined(NamesOf(option), " | ") + ") " + what + " ;;\n";
  }
  return cases;
}

std::string BashWords(const std::vector<Option>& options) {
  std::string words;
  for (const Option& option : options) words += (words.empty() ? "" : " ") + Joined(NamesOf(option), " ");
  return words;
}

// '(-o --output)--output=[meaning]:FILE:_files', once for each name.
std::string ZshSpecs(const std::vector<Option>& options, const std::string& indent) {
  std::string specs;
  for (const Option& option : options) {
    const std::string meaning = "[" + Escaped(option.meaning, "[]:\\") + "]";
    std::string value;
    for (int i = 0; i < option.values; ++i)
      value += ":" + option.value + ":" +
               (option.IsFile()          ? "_files"
                : option.choices.empty() ? " "
                                         : "(" + Joined(option.choices, " ") + ")");
    const std::string others = option.repeated ? "*" : "(" + Joined(NamesOf(option), " ") + ")";
    for (const std::string& name : NamesOf(option)) {
      const std::string join = value.empty() || option.values > 1 ? "" : name[1] == '-' ? "=" : "+";
      specs += indent + ZshQuoted(others + name + join + meaning + value) + " \\\n";
    }
  }
  return specs;
}

std::string FishLines(const Program& program, const std::vector<Option>& options, const std::string& when) {
  std::string lines;
  for (const Option& option : options) {
    lines += "complete -c " + program.name + when;
    if (!option.letter.empty()) lines += " -s " + option.letter;
    lines += " -l " + option.name;
    if (option.IsFile()) lines += " -r -F";
    if (!option.value.empty() && !option.IsFile()) lines += " -x";
    if (!option.choices.empty()) lines += " -a " + FishQuoted(Joined(option.choices, " "));
    lines += " -d " + FishQuoted(option.meaning) + "\n";
  }
  return lines;
}

}  // namespace

std::string BashCompletion(const Program& program) {
  std::vector<std::string> taking;  // options before the command whose value is a word of its own
  for (const Option& option : program.options)
    if (!option.value.empty()) taking.push_back(Joined(NamesOf(option), " | "));
  std::string text = "# Completion of " + program.name + " for bash, " + kMade + R"(
_reflyze() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local command= words= options= files= i
  COMPREPLY=()
  # "--format=text" comes as three words.
  if [[ $current == "=" ]]; then
    current=
  elif [[ $previous == "=" ]]; then
    previous=${COMP_WORDS[COMP_CWORD - 2]}
  fi
  for ((i = 1; i < COMP_CWORD; ++i)); do
    case ${COMP_WORDS[i]} in
      )" + Joined(taking, " | ") +
                     ") ((++i)) ;;\n      " + Joined(NamesOf(program.commands), " | ") +
                     R"()
        command=${COMP_WORDS[i]}
        break
        ;;
    esac
  done
  case $command in
)";
  for (const Command& command : program.commands)
    text += "    " + command.name + ")\n      options=\"" + BashWords(command.options) +
            "\"\n      case $previous in\n" + BashCases(command.options) + "      esac\n      ;;\n";
  text += "    *) options=\"" + BashWords({program.options}) + "\" ;;\n  esac\n  case $previous in\n" +
          BashCases(program.options) + R"(  esac
  if [[ -n $words ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
  elif [[ -z $files && $current == -?* || -z $files && $current == - ]]; then
)" + "    mapfile -t COMPREPLY < <(compgen -W \"$options " +
          BashWords(program.options) + R"(" -- "$current")
  elif [[ -z $files && -z $command ]]; then
)" + "    mapfile -t COMPREPLY < <(compgen -W \"" +
          Joined(NamesOf(program.commands), " ") + R"(" -- "$current")
  else
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
  fi
}
)" + "complete -F _reflyze " +
          program.name + "\n";
  return text;
}

std::string ZshCompletion(const Program& program) {
  std::string text = "#compdef " + program.name + "\n# Completion of " + program.name + " for zsh, " + kMade +
                     "\n_reflyze() {\n  local state line\n  local -a commands=(\n";
  for (const Command& command : program.commands)
    text += "    " + ZshQuoted(command.name + ":" + Escaped(command.summary, ":\\")) + "\n";
  text += "  )\n  _arguments -C \\\n" + ZshSpecs(program.options, "    ") +
          "    '1:command:->command' \\\n    '*::argument:->argument'\n  case $state in\n"
          "    command) _describe -t commands command commands ;;\n    argument)\n      case $words[1] in\n";
  for (const Command& command : program.commands) {
    text += "        " + command.name + ")\n          _arguments \\\n" +
            ZshSpecs(program.options, "            ") + ZshSpecs(command.options, "            ");
    for (const Option& argument : command.arguments)
      text +=
          "            " + ZshQuoted((argument.repeated ? "*:" : ":") + argument.name + ":_files") + " \\\n";
    text.resize(text.size() - 3);
    text += "\n          ;;\n";
  }
  return text + "      esac\n      ;;\n  esac\n}\n\n_reflyze \"$@\"\n";
}

std::string FishCompletion(const Program& program) {
  std::string text = "# Completion of " + program.name + " for fish, " + kMade + "\ncomplete -c " +
                     program.name + " -n __fish_use_subcommand -f\n" +
                     FishLines(program, program.options, "");
  for (const Command& command : program.commands)
    text += "complete -c " + program.name + " -n __fish_use_subcommand -a " + command.name + " -d " +
            FishQuoted(command.summary) + "\n";
  for (const Command& command : program.commands)
    text += FishLines(program, command.options, " -n '__fish_seen_subcommand_from " + command.name + "'");
  return text;
}

}  // namespace reflyze::cli::manual
