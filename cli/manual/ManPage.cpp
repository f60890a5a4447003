// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cctype>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>

#include "cli/manual/Manual.h"

namespace reflyze::cli::manual {
namespace {

std::string InCapitals(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

// What stands for the value of an option: its choices, or its unit or kind.
std::string ValueOf(const Option& option) {
  if (option.choices.empty()) {
    std::string value;
    for (int i = 0; i < option.values; ++i) value += " \\fI" + Roff(option.value, true) + "\\fR";
    return value;
  }
  std::string value;
  for (const std::string& choice : option.choices) value += (value.empty() ? " \\fB" : "\\fR|\\fB") + choice;
  return value + "\\fR";
}

std::string InBold(const std::string& option) { return "\\fB" + Roff(option, true) + "\\fR"; }

std::string EntryOf(const Option& option) {
  std::string entry = ".TP\n";
  if (!option.letter.empty()) entry += InBold("-" + option.letter) + ", ";
  entry += InBold("--" + option.name) + ValueOf(option) + "\n" + Roff(option.meaning);
  if (!option.preset.empty()) entry += "; " + Roff(option.preset, true) + " if it is not given";
  entry += ".";
  if (option.required) entry += " Must be given.";
  if (option.repeated) entry += " May be given several times.";
  if (!option.needs.empty()) entry += " Goes with " + InBold(option.needs) + ".";
  return entry + "\n";
}

std::string EntriesOf(const std::vector<Option>& options) {
  std::string entries;
  for (const Option& option : options) entries += EntryOf(option);
  return entries;
}

std::string SynopsisOf(const Program& program, const Command& command) {
  std::string line = InBold(program.name + " " + command.name);
  for (const Option& option : command.options) {
    const std::string name = InBold(option.letter.empty() ? "--" + option.name : "-" + option.letter);
    const std::string shown = name + ValueOf(option);
    line += option.required ? " " + shown : " [" + shown + "]" + (option.repeated ? "..." : "");
  }
  for (const Option& argument : command.arguments)
    line += " \\fI" + argument.name + "\\fR" + (argument.repeated ? "..." : "");
  return line + "\n";
}

// The definitions and the page of a command name the same options.
void RequireSameOptions(const Program& program, const Command& command, const std::string& page) {
  std::set<std::string> known;
  for (const Command& other : program.commands)
    for (const Option& option : other.options) known.insert("--" + option.name);
  for (const Option& option : program.options) known.insert("--" + option.name);
  static const std::regex word("--[a-z][a-z-]*");
  std::set<std::string> named;
  for (std::sregex_iterator i(page.begin(), page.end(), word), end; i != end; ++i) named.insert(i->str());
  for (const std::string& name : named)
    if (known.count(name) == 0)
      throw std::runtime_error("docs/commands/" + command.name + ".md: no option " + name);
  for (const Option& option : command.options)
    if (named.count("--" + option.name) == 0 && page.find("-" + option.letter + " ") == std::string::npos)
      throw std::runtime_error("docs/commands/" + command.name + ".md says nothing of --" + option.name);
}

// The first block of code of a page is the synopsis, which the definitions give as well.
std::string WithoutSynopsis(const std::string& body) {
  const size_t first = body.find("```\n");
  return body.substr(body.find("```\n", first + 4) + 4);
}

std::string PartOf(const Program& program, const Command& command, const std::string& page) {
  RequireSameOptions(program, command, page);
  std::vector<Section> sections = SectionsOf(page);
  sections[0].body = WithoutSynopsis(sections[0].body);
  std::string part = ".SH \"" + InCapitals(program.name + " " + command.name) + "\"\n" +
                     SynopsisOf(program, command) + RoffOf(sections[0].body, false) + ".SS Options\n" +
                     EntriesOf(command.options);
  if (!command.footer.empty()) part += RoffOf("```\n" + command.footer + "```\n", false);
  for (size_t i = 1; i < sections.size(); ++i)
    part += ".SS \"" + Roff(sections[i].heading) + "\"\n" + RoffOf(sections[i].body);
  return part;
}

std::string SentenceStart(std::string text) {
  text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
  if (text.back() == '.') text.pop_back();
  return text;
}

}  // namespace

std::string ManPage(const Program& program, const std::string& version,
                    const std::map<std::string, std::string>& documents) {
  std::string page = ".\\\" Made by reflyze_manual from the options of the program and from docs/.\n.TH " +
                     InCapitals(program.name) + " 1 \"\" \"" + program.name + " " + version +
                     "\" \"User Commands\"\n.SH NAME\n" + program.name + " \\- " +
                     Roff(SentenceStart(program.summary)) + "\n.SH SYNOPSIS\n" + InBold(program.name) +
                     " \\fICOMMAND\\fR [\\fIOPTIONS\\fR] \\fIFILE\\fR...\n.SH COMMANDS\n";
  for (const Command& command : program.commands)
    page += ".TP\n" + InBold(command.name) + "\n" + Roff(command.summary) + ".\n";
  page += ".SH \"OPTIONS OF EVERY COMMAND\"\n" + EntriesOf(program.options);
  for (const Command& command : program.commands)
    page += PartOf(program, command, documents.at("commands/" + command.name + ".md"));
  for (const char* name : {"commands/README.md", "units.md"}) {
    std::vector<Section> sections = SectionsOf(documents.at(name));
    if (std::string(name) == "units.md") sections[0].heading = "Units";
    for (const Section& section : sections)
      if (!section.heading.empty())
        page += ".SH \"" + InCapitals(Roff(section.heading)) + "\"\n" + RoffOf(section.body);
  }
  return page;
}

}  // namespace reflyze::cli::manual
