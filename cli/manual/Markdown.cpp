// SPDX-License-Identifier: Apache-2.0
#include <cctype>
#include <sstream>
#include <stdexcept>

#include "cli/manual/Manual.h"

namespace reflyze::cli::manual {
namespace {

bool StartsWith(const std::string& text, const std::string& head) { return text.rfind(head, 0) == 0; }

std::string Trimmed(const std::string& text) {
  const size_t first = text.find_first_not_of(' ');
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

// `code`, **strong** and [text](target) of a line; a target is of no use on a manual page.
std::string Inline(const std::string& text) {
  std::string roff;
  for (size_t at = 0; at < text.size();) {
    const std::string mark = text[at] == '`' ? "`" : StartsWith(text.substr(at, 2), "**") ? "**" : "";
    const size_t end = mark.empty() ? std::string::npos : text.find(mark, at + mark.size());
    const size_t middle = text[at] == '[' ? text.find("](", at) : std::string::npos;
    if (end != std::string::npos) {
      roff += "\\fB" + Roff(text.substr(at + mark.size(), end - at - mark.size()), mark == "`") + "\\fR";
      at = end + mark.size();
    } else if (middle != std::string::npos) {
      roff += Inline(text.substr(at + 1, middle - at - 1));
      at = text.find(')', middle) + 1;
    } else {
      const size_t next = text.find_first_of("`*[", at + 1);
      roff += Roff(text.substr(at, next - at));
      at = next == std::string::npos ? text.size() : next;
    }
  }
  return roff;
}

// A line of text must not begin as a request.
std::string Line(const std::string& roff) {
  return (!roff.empty() && (roff[0] == '.' || roff[0] == '\'') ? "\\&" : "") + roff + "\n";
}

std::vector<std::string> CellsOf(const std::string& row) {
  std::vector<std::string> cells;
  std::istringstream in(row.substr(1));
  for (std::string cell; std::getline(in, cell, '|');) cells.push_back(Trimmed(cell));
  return cells;
}

class Converter {
 public:
  explicit Converter(const std::string& body) : in_(body) {}

  std::string Run() {
    for (std::string line; std::getline(in_, line);) {
      if (StartsWith(line, "```")) {
        EndParagraph();
        TakeCode();
      } else if (StartsWith(line, "|")) {
        EndParagraph();
        TakeTable(line);
      } else if (StartsWith(line, "- ")) {
        EndParagraph();
        request_ = ".IP \\(bu 2\n";
        paragraph_ = line.substr(2);
      } else if (line.empty()) {
        EndParagraph();
      } else if (StartsWith(line, "#") || StartsWith(line, ">") || StartsWith(line, "!")) {
        throw std::runtime_error("a manual page can't show: " + line);
      } else {
        paragraph_ += (paragraph_.empty() ? "" : " ") + Trimmed(line);
      }
    }
    EndParagraph();
    return roff_;
  }

 private:
  void EndParagraph() {
    if (!paragraph_.empty()) roff_ += request_ + Line(Inline(paragraph_));
    paragraph_.clear();
    request_ = ".PP\n";
  }

  void TakeCode() {
    roff_ += ".PP\n.RS 2\n.EX\n";
    for (std::string line; std::getline(in_, line) && line != "```";) {
      line.erase(line.find_last_not_of(' ') + 1);
      roff_ += Line(Roff(line, true));
    }
    roff_ += ".EE\n.RE\n";
  }

  // A row becomes an entry: its last cell is the text, those before it the tag.
  void TakeTable(std::string line) {
    std::getline(in_, line);  // the heading goes, and the rule below it
    while (std::getline(in_, line) && StartsWith(line, "|")) {
      const std::vector<std::string> cells = CellsOf(line);
      std::string tag;
      for (size_t i = 0; i + 1 < cells.size(); ++i)
        if (!cells[i].empty()) tag += (i == 0 ? "" : ", ") + Inline(cells[i]);
      roff_ += ".TP\n" + Line(tag) + Line(Inline(cells.back()));
    }
  }

  std::istringstream in_;
  std::string roff_;
  std::string paragraph_, request_ = ".PP\n";
};

}  // namespace

std::string Roff(const std::string& text, bool literal) {
  std::string roff;
  for (size_t i = 0; i < text.size(); ++i) {
    const bool minus =
        literal || (i + 1 < text.size() && std::isdigit(static_cast<unsigned char>(text[i + 1])));
    if (text[i] == '\\') {
      roff += "\\e";
    } else if (text[i] == '-' && minus) {
      roff += "\\-";
    } else {
      roff += text[i];
    }
  }
  return roff;
}

std::vector<Section> SectionsOf(const std::string& markdown) {
  std::vector<Section> sections(1);
  std::istringstream in(markdown);
  for (std::string line; std::getline(in, line);) {
    if (StartsWith(line, "## ")) {
      sections.push_back({line.substr(3), ""});
    } else if (!StartsWith(line, "# ")) {
      sections.back().body += line + "\n";
    }
  }
  return sections;
}

std::string RoffOf(const std::string& body, bool first) {
  const std::string roff = Converter(body).Run();
  return first && StartsWith(roff, ".PP\n") ? roff.substr(4) : roff;
}

}  // namespace reflyze::cli::manual
