// SPDX-License-Identifier: Apache-2.0
#include "src/analysis/th.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include "util/tinifile.h"

namespace {

// A file of its own for each test, gone afterwards.
class ThresholdFile : public ::testing::Test {
 protected:
  ThresholdFile()
      : path_(::testing::TempDir() + "reflyze_" +
              ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".ini") {
    std::remove(path_.c_str());
  }
  ~ThresholdFile() override { std::remove(path_.c_str()); }

  void Put(const std::string& text) { std::ofstream(path_, std::ios::binary) << text; }
  std::string Text() const {
    std::ifstream file(path_, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  const std::string path_;
};

// All thresholds in order; the first nine are those that a file holds.
std::vector<double> Values(const TTH& t) {
  return {t.THLoss,
          t.THRef,
          t.THEnd,
          t.THEndPON,
          t.Event,
          t.dBkm,
          t.polar,
          t.RefSat,
          1.0 * t.MinPin,
          t.THAux1,
          t.THAux2,
          t.MinLine,
          t.NFMargin,
          1.0 * t.AuxCount,
          1.0 * t.MaxPin,
          1.0 * t.fromAutomat,
          1.0 * t.noShortAnalysis};
}
const std::vector<double> kDefaults = {0.2,   -60.0, 20.0, 30.0, 0.02,  0.25,  0.1, -0.2, 10.0,
                                       -40.0, 0.05,  0.0,  -1.0, 100.0, 100.0, 0.0, 0.0};
constexpr char kNineKeys[] =
    "[NON]\r\nTHLoss=1.5\r\nTHRef=2.5\r\nTHEnd=3.5\r\nTHEndPON=4.5\r\nEvent=5.5\r\ndBkm=6.5\r\n"
    "polar=7.5\r\nRefSat=8.5\r\nMinPin=9\r\n\r\n";

TEST_F(ThresholdFile, HoldsNineKeysAndNothingElseReachesTheOthers) {
  Put(kNineKeys);
  TTH th(path_.c_str());
  EXPECT_EQ(Values(th), kDefaults);
  ASSERT_EQ(th.IniTH("NON", "read"), 1);
  std::vector<double> expected = {1.5, 2.5, 3.5, 4.5, 5.5, 6.5, 7.5, 8.5, 9.0};
  expected.insert(expected.end(), kDefaults.begin() + 9, kDefaults.end());
  EXPECT_EQ(Values(th), expected);

  std::remove(path_.c_str());
  ASSERT_EQ(th.IniTH("w"), 1);
  EXPECT_EQ(Text(), kNineKeys);

  th.MaxPin = th.noShortAnalysis = 77;
  th.Reset();
  EXPECT_EQ(Values(th), kDefaults);
  EXPECT_EQ(th.path, path_.c_str());
  EXPECT_EQ(TTH().path, "ThresH.ini");
  EXPECT_EQ(TdTH().path, "Monitor.ini");
}

TEST_F(ThresholdFile, MissingKeysKeepThePresentValue) {
  Put("[A]\r\nTHLoss=0.7\r\nMinPin=\r\n");
  TTH th(path_.c_str());
  th.polar = 0.33;
  th.MinPin = 12;
  ASSERT_EQ(th.IniTH("A", "r"), 1);
  EXPECT_EQ(th.THLoss, 0.7);
  EXPECT_EQ(th.polar, 0.33);
  EXPECT_EQ(th.MinPin, 12);
  EXPECT_TRUE(th.HasSection("A"));
  EXPECT_FALSE(th.HasSection("a"));
  ASSERT_EQ(th.IniTH("B", "r"), 1);  // a section that is not there has none of the keys
  EXPECT_EQ(th.THLoss, 0.7);
}

TEST_F(ThresholdFile, StatusOfEveryMode) {
  const std::string nowhere = path_ + "/no/such/folder.ini";
  const struct {
    const char* mode;
    bool writable, exists;
    int thresholds, changes;  // what the two classes answer
  } kCases[] = {
      {"r", true, false, 0, 0},  {"r", true, true, 1, 1},  {"w", true, false, 1, 0}, {"w", true, true, 1, 0},
      {"w", false, false, 0, 1}, {"x", true, false, 1, 1}, {"x", true, true, 1, 1},  {"", true, true, 1, 1},
  };
  for (const auto& c : kCases) {
    std::remove(path_.c_str());
    if (c.exists) Put("[NON]\r\nTHLoss=1\r\n");
    const std::string& path = c.writable ? path_ : nowhere;
    EXPECT_EQ(TTH(path.c_str()).IniTH(c.mode), c.thresholds) << c.mode << c.writable << c.exists;
    std::remove(path_.c_str());
    if (c.exists) Put("[NON]\r\nTHLoss=1\r\n");
    EXPECT_EQ(TdTH(path.c_str()).IniTH(c.mode), c.changes) << c.mode << c.writable << c.exists;
    if (c.mode[0] != 'w') {
      EXPECT_EQ(Text(), c.exists ? "[NON]\r\nTHLoss=1\r\n" : "");
    }
  }
}

TEST_F(ThresholdFile, PermittedChangesHaveThreeKeys) {
  TdTH written(path_.c_str());
  written.dTHLoss = 0.5;
  written.dTHRef = -3.0;
  written.dBkmDelta = 0.125;
  ASSERT_EQ(written.IniTH("L1", "w"), 0);
  EXPECT_EQ(Text(), "[L1]\r\ndTHLoss=0.5\r\ndTHRef=-3\r\nd(dBkm)=0.125\r\n\r\n");
  TdTH read(path_.c_str());
  ASSERT_EQ(read.IniTH("L1", "r"), 1);
  EXPECT_EQ(read.dTHLoss, 0.5);
  EXPECT_EQ(read.dTHRef, -3.0);
  EXPECT_EQ(read.dBkmDelta, 0.125);
}

TEST(EventPoint, IsListedAsWhatItKeeps) {
  const struct {
    double value, accuracy;
    int index;
    double kept;
    const char *key, *text;
  } kCases[] = {
      {1.2349, 0.0509, -1, 1.234, "Ev", "R  0.050(1.234)"},
      {-1.2349, 10.0, 0, -1.234, "Ev0", "R 10.000(-1.234)"},
      {std::numeric_limits<double>::quiet_NaN(), 0.0, 12, 0.0, "Ev12", "R  0.000(0.000)"},
  };
  for (const auto& c : kCases) {
    TIniSection section;
    TEventPoint point;
    point.EventPointValue = c.value;
    point.EventPointAccuracy = c.accuracy;
    point.EventPointType = 'R';
    point.SetIni(&section, c.index);
    EXPECT_EQ(point.EventPointValue, c.kept);
    EXPECT_STREQ(section.GetString(c.key, "none"), c.text);
    TEventPoint copy;
    copy.Assign(&point);
    EXPECT_EQ(copy.EventPointValue, c.kept);
    EXPECT_EQ(copy.EventPointAccuracy, point.EventPointAccuracy);
    EXPECT_EQ(copy.EventPointType, 'R');
  }
}

}  // namespace
