// SPDX-License-Identifier: Apache-2.0
#include <cstdlib>
#include <ctime>

#include "tests/cli/program.h"

namespace {

class ShowTest : public ProgramTest {
 protected:
  // The metro link with the table that an analysis has stored.
  std::string StoreTable(const std::string& name) const {
    const std::string trace = StoreTrace("plain.sor");
    EXPECT_EQ(Run({"analyse", trace, "-o", File(name), "--lt", "0.1"}).status, 0);
    return File(name);
  }
};

// A clock with a half hour in its distance from UTC, for the time of a test.
class InNewfoundland {
 public:
  InNewfoundland() { Set("NST3:30"); }
  ~InNewfoundland() { Set("UTC"); }

 private:
  static void Set(const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
  }
};

long CommasInTexts(const std::string& line) {
  long commas = 0;
  bool quoted = false;
  for (const char c : line) {
    quoted = quoted != (c == '"');
    commas += quoted && c == ',' ? 1 : 0;
  }
  return commas;
}

TEST_F(ShowTest, CardAndTableInThreeForms) {
  const InNewfoundland clock;
  const std::string trace = StoreTable("t.sor");
  const nlohmann::json json = Json(Run({"show", trace, "--format", "json"}));
  EXPECT_EQ(json["card"]["date_utc"], "2026-01-01T00:00:00Z");
  EXPECT_EQ(json["card"]["date_local"], "2025-12-31T20:30:00-03:30");
  EXPECT_EQ(json["card"]["group_index"], 1.468);
  EXPECT_EQ(json["card"]["backscatter_db"], -81.9);
  EXPECT_EQ(json["revision"], 200);
  ASSERT_EQ(json["events"].size(), 4u);
  EXPECT_EQ(json["events"][0]["loss_db"], nullptr);
  EXPECT_EQ(json["events"][2]["meaning"], "no reflection, found by software, least squares");
  EXPECT_FALSE(json["events"][2].contains("measured"));

  const Result text = Run({"show", trace});
  EXPECT_NE(text.out.find("Date         2025-12-31T20:30:00-03:30 (2026-01-01T00:00:00Z)\n"), text.out.npos);
  EXPECT_NE(text.out.find("1E9999LS  reflection, end of the fibre, least squares\n"), text.out.npos);
  const Result csv = Run({"show", trace, trace, "--format", "csv", "--measure"});
  EXPECT_EQ(csv.status, 0);
  EXPECT_EQ(std::count(csv.out.begin(), csv.out.end(), '\n'), 1 + 4 + 4) << csv.out;
  std::istringstream lines(csv.out);
  for (std::string line; std::getline(lines, line);)
    EXPECT_EQ(std::count(line.begin(), line.end(), ','),
              line.rfind("file", 0) == 0 ? 20 : 20 + CommasInTexts(line))
        << line;
}

TEST_F(ShowTest, CurveHasEveryPoint) {
  const std::string trace = StoreTrace("a.sor");
  const Result one = Run({"show", trace, "--curve"});
  ASSERT_EQ(one.status, 0) << one.err;
  EXPECT_EQ(std::count(one.out.begin(), one.out.end(), '\n'), 9001);
  const nlohmann::json dump = Json(Run({"dump", trace, "--format", "json"}));
  std::istringstream lines(one.out);
  std::string line;
  std::getline(lines, line);
  EXPECT_EQ(line, "distance_km,level_db");
  for (int i = 0; i < 9000; ++i) {
    std::getline(lines, line);
    const size_t comma = line.find(',');
    ASSERT_NEAR(std::stod(line.substr(0, comma)), 0.002 * i, 0.0001);
    ASSERT_NEAR(std::stod(line.substr(comma + 1)), dump["DataPts"]["samples"][i].get<int>() / -1000.0, 1e-4)
        << i;
  }
  const Result two = Run({"show", trace, "-", "--curve"}, Load(trace));
  EXPECT_EQ(two.out.rfind("file,distance_km,level_db\n\"" + trace + "\",0.000000,", 0), 0u);
  EXPECT_NE(two.out.find("\n\"-\",0.000000,"), two.out.npos);
}

TEST_F(ShowTest, OneThatFailsCostsItsLine) {
  const std::string trace = StoreTable("t.sor");
  const Result result = Run({"show", trace, File("none.sor"), trace, "--format", "json"});
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 2);
  EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
  ExpectOneLineError(Run({"show", File("none.sor")}), 3, "no file");
  ExpectOneLineError(Run({"show", trace, "--curve", "--measure"}), 2, "two kinds of listing");
  // Texts of a record must not act on a terminal.
  std::string bytes = Load(trace);
  const size_t name = bytes.find("simulated");
  ASSERT_NE(name, bytes.npos);
  bytes[name] = '\x1b';
  EXPECT_EQ(Run({"show", Store("esc.sor", bytes)}).out.find('\x1b'), std::string::npos);
}

TEST_F(ShowTest, AListedCurveIsImportedAndListedTheSame) {
  const Result listed = Run({"show", "--curve", StoreTrace("a.sor")});
  ASSERT_EQ(listed.status, 0) << listed.err;
  const Result imported =
      Run({"import", "-", "-o", File("b.sor"), "--pulse", "100", "--wavelength", "1310"}, listed.out);
  ASSERT_EQ(imported.status, 0) << imported.err;
  EXPECT_EQ(imported.err.find("standard input: warning: tells not how it was taken"), 9u) << imported.err;
  EXPECT_EQ(Run({"show", "--curve", File("b.sor")}).out, listed.out);
  EXPECT_EQ(Run({"analyse", File("b.sor")}).status, 0);
  // Distances may count from a user's zero.
  ASSERT_EQ(Run({"edit", File("b.sor"), "--set", "user-offset=1.5", "-o", File("u.sor")}).status, 0);
  const std::string shifted = Run({"show", "--curve", File("u.sor")}).out;
  EXPECT_NE(shifted, listed.out);
  ASSERT_EQ(Run({"import", "-", "-o", File("v.sor"), "--user-offset", "1.5"}, shifted).status, 0);
  EXPECT_EQ(Run({"show", "--curve", File("v.sor")}).out, shifted);
  // What is no curve leaves the output as it was.
  const std::string before = Load(File("b.sor"));
  const Result broken = Run({"import", Store("c.csv", listed.out + "x,y\n"), "-o", File("b.sor")});
  EXPECT_EQ(broken.status, 3);
  EXPECT_NE(broken.err.find("c.csv: line 9002: \"x\" is no number"), std::string::npos) << broken.err;
  EXPECT_EQ(Load(File("b.sor")), before);
}

}  // namespace
