// SPDX-License-Identifier: Apache-2.0

// CSV says what JSON says: each cell is looked up by the name of its column.

#include <algorithm>
#include <cmath>

#include "tests/cli/program.h"

namespace {

using Value = nlohmann::json;
using Cells = std::vector<std::string>;

class CsvTest : public ProgramTest {
 protected:
  static std::vector<Cells> Parsed(const std::string& text) {
    std::vector<Cells> lines;
    Cells cells(1);
    bool quoted = false;
    for (size_t i = 0; i < text.size(); ++i) {
      const char c = text[i];
      if (c == '"') {
        if (quoted && text[i + 1] == '"')
          cells.back() += text[i++];
        else
          quoted = !quoted;
      } else if (!quoted && c == ',') {
        cells.emplace_back();
      } else if (!quoted && c == '\n') {
        lines.push_back(cells);
        cells.assign(1, "");
      } else {
        cells.back() += c;
      }
    }
    return lines;
  }

  // What JSON has for a column of a row.
  static Value Told(const Value& object, const Value& event, const std::string& column) {
    const auto dash = column.find('_');
    const std::string first = column.substr(0, dash),
                      rest = dash == column.npos ? "" : column.substr(dash + 1);
    if (column == "file_a" || column == "file_b") return object.at(rest);
    if (event.contains(column)) return event[column];
    if (first == "lt" || first == "rt" || first == "ct") {
      const bool perKm = rest.find("_per_km") != rest.npos;
      EXPECT_EQ(perKm, first == "ct" && rest.find("_db") != rest.npos) << column;
      return event.at(first).at(perKm ? rest.substr(0, rest.size() - 7) : rest);
    }
    if (rest == "verdict") return event.at("verdict").at(first);
    if (first == "place") {
      const auto index = static_cast<size_t>(rest[0] - '1');
      return index < object["places_km"].size() ? object["places_km"][index] : Value();
    }
    if (first == "begin" || first == "peak" || first == "end")
      return event.at(rest == "km" ? "distance_km" : "level_db").at(first);
    if (first == "grade") return event.at(rest == "up" ? "gradeUp" : "gradeDown");
    return object.at(column);
  }

  static void ExpectSame(const std::string& cell, const Value& told, const std::string& what) {
    if (told.is_null()) {
      EXPECT_EQ(cell, "") << what;
    } else if (told.is_boolean()) {
      EXPECT_EQ(cell, told.get<bool>() ? "1" : "0") << what;
    } else if (told.is_string()) {
      EXPECT_EQ(cell, told.get<std::string>()) << what;
    } else {
      ASSERT_FALSE(cell.empty()) << what;
      const size_t point = cell.find('.');
      const int decimals = point == cell.npos ? 0 : static_cast<int>(cell.size() - point - 1);
      EXPECT_NEAR(std::stod(cell), told.get<double>(), 0.501 * std::pow(10.0, -decimals)) << what;
    }
  }

  // Gives the number of rows.
  size_t Check(std::vector<std::string> arguments, int status = 0) const {
    arguments.insert(arguments.end(), {"--format", "json"});
    const Result json = Run(arguments);
    arguments.back() = "csv";
    const Result csv = Run(arguments);
    const std::string& command = arguments[0];
    EXPECT_EQ(csv.status, status) << command << ": " << csv.err;
    const std::vector<Cells> table = Parsed(csv.out);
    size_t line = 1;
    std::istringstream objects(json.out);
    for (std::string text; std::getline(objects, text);) {
      const Value object = Value::parse(text);
      std::vector<Value> events = {Value::object()};
      if (object.contains("events") && !object["events"].empty())
        events = object["events"].get<std::vector<Value>>();
      for (size_t i = 0; i < events.size() && line < table.size(); ++i, ++line) {
        if (!events[i].contains("number")) events[i]["number"] = i + 1;
        if (object.contains("places_km")) events[i].erase("number");
        EXPECT_EQ(table[line].size(), table[0].size()) << command;
        for (size_t c = 0; c < table[line].size() && c < table[0].size(); ++c)
          ExpectSame(table[line][c], Told(object, events[i], table[0][c]), command + " " + table[0][c]);
      }
    }
    EXPECT_EQ(line, table.size()) << command;
    return line - 1;
  }
};

TEST_F(CsvTest, EveryTableHasTheNumbersOfItsJsonBelowOneHeading) {
  const std::string a = StoreTrace("a \"1\", x.sor");
  reflyze::sim::Link worse = MetroLink();
  worse.joints.at(1).lossDb += 0.4;
  const std::string b = Store("b.sor", Bytes(*reflyze::sim::Simulate(worse, 4).record));
  const std::string baseline = File("baseline.sor");
  const std::string limits = Store("l.ini", "[one way]\nsplice_db = 0.1\n[mean of two]\nsplice_db = 0.1\n");
  EXPECT_GE(Check({"baseline", a, "-o", baseline, "--level", "main"}), 4u);
  const size_t compared = Check({"compare", baseline, a, b}, 1);
  EXPECT_GE(compared, 8u);
  EXPECT_EQ(Check({"compare", baseline, a, b, "--module"}, 1), compared);
  reflyze::sim::Link there = MetroLink(), back;
  there.sections = {{1.0, 0.2, -81.9}, {5.0, 0.2, -81.9}, {3.0, 0.2, -82.1}, {1.0, 0.2, -81.9}};
  there.joints = {{0.3, -50.0}, {0.3, {}}, {0.2, -48.0}};
  back = there;
  std::reverse(back.sections.begin(), back.sections.end());
  std::reverse(back.joints.begin(), back.joints.end());
  const std::string one = Store("one.sor", Bytes(*reflyze::sim::Simulate(there, 5).record)),
                    other = Store("other.sor", Bytes(*reflyze::sim::Simulate(back, 6).record));
  EXPECT_EQ(Check({"merge", one, other, "-o", File("a"), File("b"), "--launch", "1", "--receive", "1",
                   "--limits", limits},
                  5),
            3u);
  EXPECT_GE(Check({"quality", a, b, "--long-pulse", b}), 8u);
  EXPECT_GE(Check({"filter", a, b, "-o", File("smooth/")}), 2u);
  EXPECT_EQ(Check({"measure", a, b, "--from", "2", "--to", "5", "--lsa"}), 2u);
  EXPECT_EQ(Check({"measure", a, "--event", "1.5,3,4,6"}), 1u);
  EXPECT_EQ(Check({"measure", a, "--from", "0.1", "--to", "5", "--orl"}), 1u);
  EXPECT_GE(Check({"analyse", a, b, "--limits", limits}, 5), 8u);
}

// A fibre that is not there has no event, and still a row with the answer.
TEST_F(CsvTest, ADeadFibreHasARow) {
  const std::string baseline = File("baseline.sor");
  ASSERT_EQ(Run({"baseline", StoreTrace("a.sor"), "-o", baseline, "--level", "main"}).status, 0);
  reflyze::sim::Link dark = MetroLink();
  dark.launchLevelDb -= 25.0;
  const std::string dead = Store("dead.sor", Bytes(*reflyze::sim::Simulate(dark, 4).record));
  const std::vector<Cells> table = Parsed(Run({"compare", baseline, dead, "--format", "csv"}).out);
  ASSERT_GE(table.size(), 2u);
  EXPECT_EQ(table[1].size(), table[0].size());
  EXPECT_EQ(table[1][2], "10002");
}

}  // namespace
