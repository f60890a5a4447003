// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "sim/Simulate.h"
#include "src/analysis/th.h"

// Results kept as text, to compare with what the code gives now.
//
// A file holds comments and, under the name of each subject in brackets, its results: one thing a line, with
// its name first and then its fields, as in "event 3: begin=12 peak=20".
namespace pinned {

// The results of one subject.
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
  // Rounded to the digits that matter. What rounds to 0 has no sign.
  Listing& Number(const std::string& field, double value, int decimals = 4) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    const bool isZero = std::string(text).find_first_not_of("-0.") == std::string::npos;
    return Text(field, isZero && text[0] == '-' ? text + 1 : text);
  }
  // Linear power, with the digits that a sample carries.
  Listing& Power(const std::string& field, double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%.6g", value);
    return Text(field, text);
  }
  // Text of a program, line by line.
  Listing& Verbatim(const std::string& text) {
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines_.push_back("| " + line);
    return *this;
  }
  const std::vector<std::string>& lines() const { return lines_; }
  // A digest of everything, 16 digits.
  std::string Digest() const {
    std::uint64_t digest = 14695981039346656037u;
    for (const std::string& line : lines_) {
      for (const char c : line + "\n") digest = (digest ^ static_cast<unsigned char>(c)) * 1099511628211u;
    }
    char text[20];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(digest));
    return text;
  }

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

// The name of the thing that a line is about. Lines of a program's text have none.
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

// The first differences of one subject. Lines that only one side has are listed as such.
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

// Compares subjects with the file, and lists the first differences by subject and field. With REFLYZE_REPIN
// set the file is written anew instead.
class Comparison {
 public:
  explicit Comparison(const std::string& name)
      : path_(std::string(REFLYZE_SOURCE_DIR) + "/tests/pinned/" + name), kept_(Load(path_)) {}

  // Whether enough has been listed: a fault that is everywhere shows in the first few.
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

// One line of the file of links.
class Subject {
 public:
  explicit Subject(const nlohmann::json& json) : json_(json) {}

  std::string name() const { return json_.at("name"); }
  bool HasLater() const { return json_.contains("later"); }
  // Whether a part of the results is to be listed.
  bool Lists(const std::string& part) const {
    const nlohmann::json& lists = json_.at("lists");
    return std::find(lists.begin(), lists.end(), part) != lists.end();
  }
  // The link that is measured; the same fibre later; the same fibre from its other end.
  nlohmann::json Link() const {
    nlohmann::json link = json_.at("link");
    if (!link.contains("launch_level_db")) link["launch_level_db"] = -18;
    link["averages"] = 20000;
    return link;
  }
  nlohmann::json LaterLink() const {
    nlohmann::json link = Link();
    link.merge_patch(json_.at("later"));
    return link;
  }
  nlohmann::json ReversedLink() const {
    nlohmann::json link = Link();
    for (const char* list : {"sections", "joints"}) {
      if (link.contains(list)) std::reverse(link[list].begin(), link[list].end());
    }
    return link;
  }
  std::unique_ptr<TSorData> Trace() const { return Simulate(Link(), 0); }
  std::unique_ptr<TSorData> Later() const { return Simulate(LaterLink(), 1000); }
  std::unique_ptr<TSorData> Reversed() const { return Simulate(ReversedLink(), 2000); }
  TTH Thresholds() const {
    TTH thresholds;
    const nlohmann::json& values = json_.at("thresholds");
    thresholds.THLoss = values[0];
    thresholds.THRef = values[1];
    thresholds.THEnd = values[2];
    thresholds.dBkm = values[3];
    thresholds.fromAutomat = Set("automat", 1);
    thresholds.polar = Set("ripple", thresholds.polar);
    thresholds.MinLine = Set("least_km", thresholds.MinLine);
    thresholds.MinPin = Set("least_window", thresholds.MinPin);
    thresholds.MaxPin = Set("most_window", thresholds.MaxPin);
    thresholds.NFMargin = Set("margin_db", thresholds.NFMargin);
    return thresholds;
  }
  // Settings that an instrument, an operator or a host may change, by their names under "set".
  template <class Value>
  Value Set(const char* what, Value usual) const {
    return json_.contains("set") ? json_.at("set").value(what, usual) : usual;
  }

 private:
  std::unique_ptr<TSorData> Simulate(const nlohmann::json& link, int other) const {
    auto trace =
        reflyze::sim::Simulate(reflyze::sim::LinkFromText(link.dump()),
                               json_.at("seed").get<std::uint64_t>() + static_cast<std::uint64_t>(other));
    trace.record->GenParams->UO = json_.value("user_offset", 0);
    TSorBlockQRTParameters& instrument = *trace.record->QRTParams;
    instrument.IntFiber = Set("inside", 0);
    instrument.begLevel = static_cast<short>(Set("launch_level", 0));
    instrument.PonType = Set("splitters", 0U);
    instrument.FirstSplitterRatio = Set("first_ratio", 1U);
    instrument.SecondSplitterRatio = Set("second_ratio", 1U);
    instrument.modes[0].BWU1 = static_cast<short>(Set("fall", static_cast<int>(instrument.modes[0].BWU1)));
    instrument.SetFilterLevel(Set("filter_level", instrument.GetFilterLevel()), 0);
    if (Set("no_floor", false)) instrument.MAX = 0;
    return std::move(trace.record);
  }

  nlohmann::json json_;
};

inline std::vector<Subject> Subjects(const std::string& name = "links.jsonl") {
  std::vector<Subject> subjects;
  std::ifstream links(std::string(REFLYZE_SOURCE_DIR) + "/tests/pinned/" + name);
  for (std::string line; std::getline(links, line);) subjects.emplace_back(nlohmann::json::parse(line));
  return subjects;
}

// A part of the results of a subject, by its name in the subject's lists.
struct Part {
  const char* name;
  void (*list)(Listing& to, const Subject& subject);
};

// Compares every line of the parts with a file.
template <class Parts>
void HoldLines(const Parts& parts, const std::string& links, const std::string& kept) {
  Comparison comparison(kept);
  for (const Subject& subject : Subjects(links)) {
    Listing listing;
    for (const Part& part : parts) {
      if (subject.Lists(part.name)) part.list(listing, subject);
    }
    if (!listing.lines().empty()) comparison.Add(subject.name(), listing);
    if (comparison.IsEnough()) break;
  }
  comparison.Finish();
}

// Compares a digest of each part with a file. This allows as many traces as it takes to reach what is rare.
// To see what is behind two digests, take the subject over into links.jsonl before and after.
template <class Parts>
void HoldDigests(const Parts& parts, const std::string& links, const std::string& kept) {
  Comparison comparison(kept);
  for (const Subject& subject : Subjects(links)) {
    Listing digests;
    for (const Part& part : parts) {
      if (!subject.Lists(part.name)) continue;
      Listing listing;
      part.list(listing, subject);
      digests.Line(part.name).Text("digest", listing.Digest());
    }
    if (!digests.lines().empty()) comparison.Add(subject.name(), digests);
    if (comparison.IsEnough()) break;
  }
  comparison.Finish();
}

// Levels at some places, and the sum of all of them in thousandths, which shows a difference anywhere.
inline void ListLevels(Listing& to, const std::string& what, const TSorData& record) {
  to.Line(what);
  const long points = record.DataPts->GetPointsNum();
  long sum = 0;
  for (long i = 0; i < points; ++i) sum += std::lround(record.NumToLevel(i) * 1000.0);
  to.Whole("sum", sum);
  for (long i = 0; i < 8; ++i) {
    const long at = i * (points - 1) / 7;
    to.Number("at" + std::to_string(at), record.NumToLevel(at), 3);
  }
}

}  // namespace pinned
