// SPDX-License-Identifier: Apache-2.0
#include "tests/cli/program.h"

namespace {

class MeasureTest : public ProgramTest {};

TEST_F(MeasureTest, EachOptionGivesItsNumber) {
  const std::string trace = StoreTrace("a.sor");
  const struct {
    std::vector<std::string> options;
    const char *kind, *number;
    double value, within;
  } kCases[] = {
      {{"--at", "4.005"}, "at", "reflectance_db", -50.0, 0.1},
      {{"--from", "1", "--to", "3"}, "two-point", "loss_db", 0.4, 0.01},
      {{"--from", "1", "--to", "3", "--two-point"}, "two-point", "attenuation_db_per_km", 0.2, 0.005},
      {{"--from", "4.2", "--to", "7.9", "--lsa"}, "least-squares", "attenuation_db_per_km", 0.2, 0.001},
      {{"--from", "0", "--to", "12.5", "--orl"}, "return-loss", "orl_db", 31.61, 0.1},
      {{"--event", "4.2,8,8.2,11.9"}, "event", "loss_db", 0.3, 0.002},
  };
  for (const auto& c : kCases) {
    std::vector<std::string> arguments = {"measure", trace, "--format", "json"};
    arguments.insert(arguments.end(), c.options.begin(), c.options.end());
    const Result result = Run(arguments);
    ASSERT_EQ(result.status, 0) << result.err;
    const nlohmann::json json = Json(result);
    EXPECT_EQ(json["kind"], c.kind);
    EXPECT_NEAR(json[c.number].get<double>(), c.value, c.within) << c.kind;
    std::string deviation = c.number;
    deviation.insert(deviation.find("db"), "sd_");
    EXPECT_GT(json[deviation].get<double>(), 0.0) << deviation;
  }
  EXPECT_EQ(Run({"measure", "-", "--at", "3"}, Load(trace)).status, 0);
}

TEST_F(MeasureTest, WrongQuestionsAreRefused) {
  const std::string trace = StoreTrace("a.sor");
  const struct {
    std::vector<std::string> options;
    int status;
    const char* why;
  } kCases[] = {
      {{}, 2, "no place"},
      {{"--at", "x"}, 2, "no number"},
      {{"--at", "nan"}, 2, "no number either"},
      {{"--at", "1", "--from", "1", "--to", "2"}, 2, "two questions"},
      {{"--from", "1"}, 2, "a stretch without end"},
      {{"--at", "1", "--lsa"}, 2, "a line through a place"},
      {{"--from", "1", "--to", "2", "--lsa", "--orl"}, 2, "two numbers"},
      {{"--event", "1,2,3"}, 2, "three places"},
      {{"--from", "2", "--to", "1"}, 2, "wrong order"},
      {{"--at", "99"}, 2, "not on the trace"},
  };
  for (const auto& c : kCases) {
    std::vector<std::string> arguments = {"measure", trace};
    arguments.insert(arguments.end(), c.options.begin(), c.options.end());
    ExpectOneLineError(Run(arguments), c.status, c.why);
  }
  ExpectOneLineError(Run({"measure", Store("half.sor", Load(trace).substr(0, 9000)), "--at", "1"}), 3,
                     "half a file");
}

}  // namespace
