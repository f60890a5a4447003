// SPDX-License-Identifier: Apache-2.0
#include "util/elementary.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "sor/scale/sorLevelScale.h"
#include "util/bigElementary.h"
#include "util/elementaryTables.h"
#include "util/quickExp.h"

namespace reflyze::elementary {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();

bool AreSameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

double Call(const std::string& name, double x, double y) {
  if (name == "Power") return Power(x, y);
  static const std::map<std::string, double (*)(double)> kFunctions = {
      {"Exp", Exp},     {"Exp10", Exp10}, {"Log", Log}, {"Log2", Log2},
      {"Log10", Log10}, {"Sin", Sin},     {"Cos", Cos}};
  return kFunctions.at(name)(x);
}

// The same value the slow way alone, from a guess that is off in its last digits as the quick way's may be.
double CallSlowly(const std::string& name, double x, double y) {
  constexpr double kOff = 1 + 0x1p-50;
  if (name == "Exp") return SlowExp(x);
  if (name == "Exp10") return SlowExp10(x);
  if (name == "Log") return SlowLog(x, Log(x) * kOff, kBigOne);
  if (name == "Log2") return SlowLog(x, Log(x) * kOff, kBigInverseLn2);
  if (name == "Log10") return SlowLog(x, Log(x) * kOff, kBigInverseLn10);
  if (name == "Power") return SlowPower(x, Log(x) * kOff, y);
  return SlowSine(x, name == "Cos");
}

// Values are from decimal arithmetic with 120 digits, rounded once.
TEST(ElementaryTest, GivesTheDoubleNextToTheExactValue) {
  std::ifstream cases(REFLYZE_SOURCE_DIR "/tests/util/elementary.cases");
  std::string line;
  int count = 0;
  while (std::getline(cases, line)) {
    if (line.empty() || line[0] == '#') continue;
    std::istringstream words(line);
    std::vector<std::string> word(std::istream_iterator<std::string>(words), {});
    const double x = std::strtod(word[1].c_str(), nullptr);
    const double y = std::strtod(word[2].c_str(), nullptr);  // of a Power; else the sign of equality
    const double exact = std::strtod(word.back().c_str(), nullptr);
    EXPECT_TRUE(AreSameBits(Call(word[0], x, y), exact)) << line << ": " << Call(word[0], x, y);
    // Nothing but what rounds to another number than 0 or 1 ever goes there.
    if (exact != 0.0 && exact != 1.0 && std::fabs(x) > 0x1p-60 && y != 1.0) {
      EXPECT_TRUE(AreSameBits(CallSlowly(word[0], x, y), exact)) << line << ", slowly";
    }
    ++count;
  }
  EXPECT_GT(count, 200);
}

// Both ways share nothing but their tables, so that a fault of one shows against the other.
TEST(ElementaryTest, BothWaysAgree) {
  std::mt19937 bits(20260101);
  const auto between = [&bits](double low, double high) {
    return low + (high - low) * (bits() / 4294967296.0);
  };
  for (int i = 0; i < 300; ++i) {
    const double power = between(-300, 300),
                 small = std::ldexp(between(-1, 1), static_cast<int>(bits() % 50) - 45);
    const double positive = Exp10(power),
                 angle = std::ldexp(between(-1, 1), static_cast<int>(bits() % 48) - 20);
    for (const double x : {power, small}) {
      EXPECT_TRUE(AreSameBits(Exp10(x), SlowExp10(x))) << x;
      EXPECT_TRUE(AreSameBits(Exp(x), SlowExp(x))) << x;
    }
    for (const double x : {positive, 1 + small / 64}) {
      for (const char* name : {"Log", "Log2", "Log10"}) {
        EXPECT_TRUE(AreSameBits(Call(name, x, 0), CallSlowly(name, x, 0))) << name << " of " << x;
      }
    }
    for (const char* name : {"Sin", "Cos"}) {
      EXPECT_TRUE(AreSameBits(Call(name, angle, 0), CallSlowly(name, angle, 0))) << name << " of " << angle;
    }
  }
}

TEST(ElementaryTest, QuickExpIsOffByUnitsOfTheLastDigit) {
  for (double x = -689.9; x < 689.9; x += 0.0137) {
    ASSERT_NEAR(QuickExp(x) / Exp(x), 1.0, 1e-15) << x;
  }
  EXPECT_EQ(QuickExp(0.0), 1.0);
  EXPECT_EQ(QuickExp(-1000.0), 0.0);
  EXPECT_EQ(QuickExp(1000.0), kInfinity);
  EXPECT_TRUE(std::isnan(QuickExp(std::numeric_limits<double>::quiet_NaN())));
}

TEST(ElementaryTest, SpecialValues) {
  struct Case {
    const char* name;
    double x, y, result;
  };
  const Case cases[] = {
      {"Exp", kInfinity, 0, kInfinity},
      {"Exp", -kInfinity, 0, 0.0},
      {"Exp", 710.0, 0, kInfinity},
      {"Exp", -746.0, 0, 0.0},
      {"Exp", -0.0, 0, 1.0},
      {"Exp10", kInfinity, 0, kInfinity},
      {"Exp10", -kInfinity, 0, 0.0},
      {"Exp10", 308.3, 0, kInfinity},
      {"Exp10", -324.0, 0, 0.0},
      {"Exp10", 1e300, 0, kInfinity},
      {"Log", 0.0, 0, -kInfinity},
      {"Log2", -0.0, 0, -kInfinity},
      {"Log10", kInfinity, 0, kInfinity},
      {"Log", 1.0, 0, 0.0},
      {"Log10", 1.0, 0, 0.0},
      {"Sin", -0.0, 0, -0.0},
      {"Cos", 0.0, 0, 1.0},
      {"Power", -3.0, 1.0, -3.0},
      {"Power", kNoNumber, 0.0, 1.0},
      {"Power", 1.0, kInfinity, 1.0},
      {"Power", 0.0, 0.5, 0.0},
      {"Power", 0.0, -0.5, kInfinity},
      {"Power", kInfinity, 0.5, kInfinity},
      {"Power", kInfinity, -1.5, 0.0},
      {"Power", 0.5, kInfinity, 0.0},
      {"Power", 0.5, -kInfinity, kInfinity},
      {"Power", 1e300, 2.5, kInfinity},
      {"Power", 1e300, -2.5, 0.0},
      {"Power", 5.0, 1e-30, 1.0},
  };
  for (const Case& c : cases) {
    EXPECT_TRUE(AreSameBits(Call(c.name, c.x, c.y), c.result)) << c.name << ' ' << c.x << ' ' << c.y;
  }
  for (const char* name : {"Exp", "Exp10", "Log", "Log2", "Log10", "Sin", "Cos"}) {
    EXPECT_TRUE(std::isnan(Call(name, kNoNumber, 0))) << name;
  }
  for (const char* name : {"Log", "Log2", "Log10"}) EXPECT_TRUE(std::isnan(Call(name, -1.0, 0))) << name;
  EXPECT_TRUE(std::isnan(Sin(kInfinity)));
  EXPECT_TRUE(std::isnan(Power(-2.0, 0.5)));
  EXPECT_TRUE(std::isnan(Power(2.0, kNoNumber)));
  EXPECT_TRUE(AreSameBits(Sin(1e15), Sin(std::fmod(1e15, 2 * 3.14159265358979323846))));
}

// Rounded to a double first, a float may come out one digit off: nowhere in the table of powers, because no
// double there lies next to the middle between two floats.
TEST(ElementaryTest, TableOfPowersHoldsTheNearestFloats) {
  for (int i = 0; i < kPowEntries; ++i) {
    const double power = Exp10(i / 50000.0);
    const float held = tpow10Array[static_cast<size_t>(i)];
    const double other = std::nextafter(held, held < power ? 100.0F : 0.0F);
    const double middle = (held + other) / 2;
    ASSERT_LT(std::fabs(held - power), std::fabs(other - power)) << i;
    ASSERT_GT(std::fabs(middle - power), 2e-15) << i;
  }
}

}  // namespace
}  // namespace reflyze::elementary
