// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <string>
#include <vector>

namespace CLI {
class App;
}

// The manual page and the completions of the program. What they say of commands and options comes from the
// same definitions that parse the command line, and the text of the manual page from docs/.

namespace reflyze::cli::manual {

// An option, or an argument that stands for itself.
struct Option {
  std::string letter;                // "o" of "-o", or ""
  std::string name;                  // "output"; of an argument its name in capitals
  std::string value;                 // what a value stands for, such as FILE or DB; "" for a flag
  std::vector<std::string> choices;  // the only values that it takes, if there are few
  std::string meaning;
  std::string preset;  // value without the option, or ""
  std::string needs;   // another option, with its dashes, or ""
  int values = 0;      // how many it takes each time
  bool required = false;
  bool repeated = false;  // may be given several times

  bool IsFile() const;
};

struct Command {
  std::string name, summary;
  std::string footer;  // further text of its help
  std::vector<Option> options, arguments;
};

struct Program {
  std::string name, summary;
  std::vector<Option> options;  // of every command
  std::vector<Command> commands;
};

Program DescriptionOf(const CLI::App& app);

// Text with what has a meaning in roff made plain; `literal` is for what a user may copy.
std::string Roff(const std::string& text, bool literal = false);

// A document cut at its "##" headings: what stands in front of the first, under "", then heading by heading.
struct Section {
  std::string heading;
  std::string body;  // Markdown
};
std::vector<Section> SectionsOf(const std::string& markdown);

// The Markdown of a body as roff: paragraphs, lists, tables and blocks of code. The `first` paragraph below a
// heading is one without being told. Throws std::runtime_error for what it does not know.
std::string RoffOf(const std::string& body, bool first = true);

// The manual page. `documents` are the texts under docs/ by their names there. Throws std::runtime_error
// where a page in docs/commands leaves out an option of its command, or names one that there is not.
std::string ManPage(const Program& program, const std::string& version,
                    const std::map<std::string, std::string>& documents);

std::string BashCompletion(const Program& program);
std::string ZshCompletion(const Program& program);
std::string FishCompletion(const Program& program);

}  // namespace reflyze::cli::manual
