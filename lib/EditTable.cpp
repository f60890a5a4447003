// SPDX-License-Identifier: Apache-2.0

// What is to be edited, from patterns and tables.

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <map>

#include "lib/LoadedRecord.h"
#include "reflyze/edit.h"
#include "reflyze/text.h"

namespace reflyze {
namespace {

constexpr int kMostDigits = 18;

bool IsField(const std::string& name) {
  if (name.rfind("event.", 0) == 0) return true;  // its number is that of an event of the file
  const std::vector<EditField>& fields = EditFields();
  return std::any_of(fields.begin(), fields.end(),
                     [&](const EditField& field) { return name == field.name; });
}

// The name of a file without its folder and its ending.
std::string StemOf(const std::string& file) {
  const std::string name = file.substr(file.find_last_of('/') + 1);
  const std::size_t dot = name.find_last_of('.');
  return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

[[noreturn]] void WrongPattern(const std::string& pattern, const std::string& why) {
  throw Error(ErrorKind::kUsage, "", "pattern \"" + pattern + "\": " + why);
}

std::string Numbered(const std::string& pattern, const std::string& format, long n) {
  const bool digits =
      !format.empty() && format.size() < 4 && format.find_first_not_of("0123456789") == std::string::npos;
  const int width = digits ? std::atoi(format.c_str()) : 0;
  if (!digits || width < 1 || width > kMostDigits)
    WrongPattern(pattern, "{n:" + format + "} is not such as {n:03}");
  return Format(format[0] == '0' ? "%0*ld" : "%*ld", width, n);
}

std::string Filled(const std::string& pattern, const std::string& what, const Trace& trace, long n) {
  if (what == "n") return std::to_string(n);
  if (what.rfind("n:", 0) == 0) return Numbered(pattern, what.substr(2), n);
  if (what == "name") return StemOf(trace.Name());
  const Card card = trace.GetCard();
  const std::map<std::string, std::string> texts = {{"cable", card.cable},
                                                    {"fibre", card.fibre},
                                                    {"cable-code", card.cableCode},
                                                    {"from", card.from},
                                                    {"to", card.to},
                                                    {"operator", card.operatorName},
                                                    {"comment", card.comment},
                                                    {"wavelength", Format("%g", card.wavelengthNm)}};
  const auto found = texts.find(what);
  if (found == texts.end()) WrongPattern(pattern, "nothing is known as {" + what + "}");
  return found->second;
}

// One cell after the other, with the line on which each row begins.
class CsvReader {
 public:
  CsvReader(const std::string& name, const std::string& text) : name_(name), text_(text) {
    if (text_.rfind("\xEF\xBB\xBF", 0) == 0) text_.erase(0, 3);  // the mark that some editors put at the head
    const std::string head = text_.substr(0, text_.find('\n'));
    separator_ = head.find(',') == std::string::npos && head.find(';') != std::string::npos ? ';' : ',';
  }

  bool AtEnd() const { return at_ >= text_.size(); }
  int line() const { return line_; }

  std::vector<std::string> Row() {
    begun_ = line_;
    std::vector<std::string> cells = {Cell()};
    while (at_ < text_.size() && text_[at_] == separator_) {
      ++at_;
      cells.push_back(Cell());
    }
    EndLine();
    return cells;
  }

  [[noreturn]] void Wrong(int line, const std::string& why) const {
    throw Error(ErrorKind::kUnreadable, name_, Format("line %d: ", line) + why);
  }

 private:
  std::string Cell() {
    if (at_ < text_.size() && text_[at_] == '"') return QuotedCell();
    const std::size_t from = at_;
    while (at_ < text_.size() && text_[at_] != separator_ && text_[at_] != '\n' && text_[at_] != '\r') ++at_;
    return text_.substr(from, at_ - from);
  }

  std::string QuotedCell() {
    std::string cell;
    for (++at_; at_ < text_.size(); ++at_) {
      if (text_[at_] == '"') {
        if (at_ + 1 >= text_.size() || text_[at_ + 1] != '"') {
          ++at_;
          return cell;
        }
        ++at_;
      }
      line_ += text_[at_] == '\n' ? 1 : 0;
      cell += text_[at_];
    }
    Wrong(begun_, "a quotation mark is not closed");
  }

  void EndLine() {
    if (AtEnd()) return;
    if (text_[at_] == '\r') ++at_;
    if (!AtEnd() && text_[at_] != '\n') Wrong(line_, "a quoted cell goes on behind its quotation mark");
    ++at_;
    ++line_;
  }

  const std::string& name_;
  std::string text_;
  std::size_t at_ = 0;
  int line_ = 1, begun_ = 1;
  char separator_ = ',';
};

std::vector<std::string> Columns(CsvReader& csv) {
  std::vector<std::string> columns = csv.Row();
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (columns[i] != "file" && !IsField(columns[i]))
      csv.Wrong(1, "\"" + OneLine(columns[i]) + "\" is no field that can be edited");
    if (std::find(columns.begin(), columns.begin() + static_cast<std::ptrdiff_t>(i), columns[i]) !=
        columns.begin() + static_cast<std::ptrdiff_t>(i))
      csv.Wrong(1, "two columns are named \"" + columns[i] + "\"");
  }
  if (std::find(columns.begin(), columns.end(), "file") == columns.end())
    csv.Wrong(1, "no column is named \"file\"");
  return columns;
}

}  // namespace

std::string FillPattern(const std::string& pattern, const Trace& trace, long n) {
  std::string text;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    const bool open = pattern[i] == '{', close = pattern[i] == '}';
    if (!open && !close) {
      text += pattern[i];
    } else if (i + 1 < pattern.size() && pattern[i + 1] == pattern[i]) {
      text += pattern[i++];
    } else {
      const std::size_t end = pattern.find('}', i);
      if (close || end == std::string::npos)
        WrongPattern(pattern, "a brace stands alone; {{ and }} are braces");
      text += Filled(pattern, pattern.substr(i + 1, end - i - 1), trace, n);
      i = end;
    }
  }
  return text;
}

std::vector<FileEdits> EditsFromCsv(const std::string& name, const std::string& text) {
  if (text.size() > kLargestEditTable) throw Error(ErrorKind::kUnreadable, name, "is too large");
  CsvReader csv(name, text);
  if (csv.AtEnd()) csv.Wrong(1, "no columns are named");
  const std::vector<std::string> columns = Columns(csv);
  std::vector<FileEdits> all;
  std::map<std::string, int> lines;
  while (!csv.AtEnd()) {
    const int line = csv.line();
    const std::vector<std::string> cells = csv.Row();
    if (cells.size() == 1 && cells[0].empty()) continue;
    if (cells.size() != columns.size())
      csv.Wrong(line, Format("%zu cells for %zu columns", cells.size(), columns.size()));
    FileEdits row;
    row.line = line;
    for (std::size_t i = 0; i < cells.size(); ++i) {
      if (columns[i] == "file")
        row.file = cells[i];
      else if (!cells[i].empty())
        row.edits.push_back({columns[i], cells[i]});
    }
    if (row.file.empty()) csv.Wrong(line, "no file is named");
    const auto [known, fresh] = lines.emplace(row.file, line);
    if (!fresh) csv.Wrong(line, "\"" + OneLine(row.file) + Format("\" stands in line %d too", known->second));
    all.push_back(std::move(row));
  }
  return all;
}

}  // namespace reflyze
