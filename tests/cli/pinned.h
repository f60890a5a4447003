#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

// Results kept as text, to be held against what the code gives now.
//
// A file holds comments, and under the name of each subject, in brackets, what became of it: one thing a
// line, its name first and then its fields, as in "event 3: begin=12 peak=20".
namespace pinned {

// What became of one subject.
class Listing {
 public:
  Listing& Line(const std::string& what) {
    lines_.push_back(what + ":");
    return *this;
  }
  Listing& Text(const std::string& field, const std::string& value) {
    lines_.back() += " " + field + "=" + value;
    return *this;
  }
  Listing& Whole(const std::string& field, long value) { return Text(field, std::to_string(value)); }
  // Rounded to what is worth telling apart; what rounds to 0 has no sign.
  Listing& Number(const std::string& field, double value, int decimals = 4) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    const bool isZero = std::string(text).find_first_not_of("-0.") == std::string::npos;
    return Text(field, isZero && text[0] == '-' ? text + 1 : text);
  }
  // Text of a program, line by line.
  Listing& Verbatim(const std::string& text) {
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines_.push_back("| " + line);
    return *this;
  }
  const std::vector<std::string>& lines() const { return lines_; }

 private:
  std::vector<std::string> lines_;
};

using Lines = std::vector<std::string>;

inline std::map<std::string, Lines> Load(const std::string& path) {
  std::map<std::string, Lines> subjects;
  std::ifstream in(path);
  Lines* lines = nullptr;
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    if (line[0] == '[') {
      lines = &subjects[line.substr(1, line.size() - 2)];
    } else if (lines != nullptr) {
      lines->push_back(line);
    }
  }
  return subjects;
}

// What a line is about; lines of a program's text are about nothing.
inline std::string NameOf(const std::string& line) {
  return line[0] == '|' ? "|" : line.substr(0, line.find(':'));
}

// The fields that differ between two lines of one name.
inline std::string FieldsApart(const std::string& was, const std::string& is) {
  if (was[0] == '|') return "\n    was " + was + "\n    is  " + is;
  std::istringstream wasIn(was.substr(was.find(':') + 1)), isIn(is.substr(is.find(':') + 1));
  std::string text, a, b;
  while (wasIn >> a && isIn >> b) {
    if (a != b) text += "\n    " + NameOf(was) + ": was " + a + ", is " + b;
  }
  return text;
}

// The first differences of one subject. Lines that are only on one side are told as such.
inline std::string Differences(const Lines& was, const Lines& is) {
  constexpr size_t kMostLines = 5;
  std::string text;
  size_t told = 0;
  for (size_t i = 0, j = 0; (i < was.size() || j < is.size()) && told < kMostLines;) {
    if (i < was.size() && j < is.size() && NameOf(was[i]) == NameOf(is[j])) {
      told += was[i] != is[j] ? 1 : 0;
      if (was[i] != is[j]) text += FieldsApart(was[i], is[j]);
      ++i, ++j;
      continue;
    }
    ++told;
    const bool stays =
        i < was.size() && std::any_of(is.begin() + static_cast<long>(j), is.end(),
                                      [&](auto& line) { return NameOf(line) == NameOf(was[i]); });
    text += j < is.size() && (stays || i == was.size()) ? "\n    new: " + is[j++] : "\n    gone: " + was[i++];
  }
  return text;
}

// Holds subjects against the file, and tells the first differences by subject and field. With REFLYZE_REPIN
// set the file is written anew instead.
class Comparison {
 public:
  explicit Comparison(const std::string& name)
      : path_(std::string(REFLYZE_SOURCE_DIR) + "/tests/pinned/" + name), kept_(Load(path_)) {}

  // Whether there has been enough to say: a fault that is everywhere is told by the first few.
  bool IsEnough() const { return !writes_ && subjectsApart_ >= kMostSubjects; }

  void Add(const std::string& subject, const Listing& listing) {
    text_ += "\n[" + subject + "]\n";
    for (const std::string& line : listing.lines()) text_ += line + "\n";
    const Lines was = kept_[subject];
    kept_.erase(subject);
    if (was == listing.lines()) return;
    ++subjectsApart_;
    differences_ += "\n  " + subject + Differences(was, listing.lines());
  }

  void Finish() {
    if (writes_) {
      std::string head;
      std::ifstream in(path_);
      for (std::string line; std::getline(in, line) && line[0] == '#';) head += line + "\n";
      std::ofstream(path_) << head << text_;
      GTEST_SKIP() << path_ << " is written anew";
    }
    if (!IsEnough() && !kept_.empty())
      differences_ += "\n  " + kept_.begin()->first + " is not made any more";
    if (differences_.empty()) return;
    ADD_FAILURE()
        << "Results differ from those kept in " << path_ << differences_
        << "\nIf that is meant, run scripts/repin, read the difference, and say in the commit why each "
           "kind of line changes.";
  }

 private:
  static constexpr int kMostSubjects = 4;

  const std::string path_;
  const bool writes_ = std::getenv("REFLYZE_REPIN") != nullptr;
  std::map<std::string, Lines> kept_;
  std::string text_, differences_;
  int subjectsApart_ = 0;
};

}  // namespace pinned
