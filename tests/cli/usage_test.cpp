// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "tests/cli/program.h"

// A user's slips on the command line, in names and in small documents, and what the program says to them.

namespace {

using UsageTest = ProgramTest;

TEST_F(UsageTest, ValuesThatAreNoneAreWrongCommandLines) {
  const std::string trace = StoreTrace("a.sor");
  const std::string out = File("out.sor");
  const std::string link = Store("link.json", R"({"range_km": 1, "points": 100})");
  const std::vector<std::vector<std::string>> kCases = {
      {"analyse", trace, "--lt", "nan"},
      {"analyse", trace, "--lt", ""},
      {"analyse", trace, "--lt", "-0.1"},
      {"analyse", trace, "--rt", "55"},
      {"analyse", trace, "--rt", "-1e308"},
      {"analyse", trace, "--et", "1e400"},
      {"analyse", trace, "--ct", "0.2x"},
      {"analyse", trace, "-o", ""},
      {"analyse", trace, "-o", "-"},
      {"analyse", trace, "--thresholds", ""},
      {"analyse", ""},
      {"copy", trace, "-"},
      {"dump", trace, "--log", ""},
      {"filter", trace, "-o", out, "--level", "nan"},
      {"simulate", link, "-o", out, "--seed", "-1"},
      {"simulate", link, "-o", out, "--seed", "18446744073709551616"},
      {"simulate", link, "-o", out, "--truth", out},
  };
  for (const auto& arguments : kCases) {
    ExpectOneLineError(Run(arguments), 2, arguments[0] + " " + arguments.back());
    EXPECT_FALSE(std::filesystem::exists(out)) << arguments[0] << " " << arguments.back();
  }
  EXPECT_NE(Run({"analyze", trace}).err.find("\"analyze\" is no command"), std::string::npos);
}

TEST_F(UsageTest, ThresholdDocumentsAreReadAsMeantOrRefused) {
  const std::string trace = StoreTrace("a.sor");
  const struct {
    const char* what;
    std::string text;
    double ltDb;  // negative: refused
  } kCases[] = {
      {"no line end", "[NON]\nTHLoss=0.15", 0.15},
      {"blanks", "[NON] \r\n THLoss = 0.15 \r\n", 0.15},
      {"comment", "; mine\n[NON]\nTHLoss=0.15 ; dB\n", 0.15},
      {"byte order mark", "\xEF\xBB\xBF[NON]\nTHLoss=0.15\n", 0.15},
      {"key without value", "[NON]\nTHLoss=\nTHEnd=4\n", 0.2},
      {"decimal comma", "[NON]\nTHLoss=0,15\n", -1},
      {"no number", "[NON]\nTHEnd=nan\n", -1},
      {"reflectance without its sign", "[NON]\nTHRef=55\n", -1},
      {"other case", "[NON]\nthloss=0.15\n", -1},
      {"empty", "", -1},
      {"zero byte", std::string("[NON]\nTHLoss=0.15\n\0", 19), -1},
      {"far too long", "[NON]\nTHLoss=0.15\n" + std::string(70000, ';'), -1},
  };
  for (const auto& c : kCases) {
    const Result result = Run({"analyse", trace, "--format", "json", "--thresholds", Store("t.ini", c.text)});
    if (c.ltDb < 0.0) {
      ExpectOneLineError(result, 3, c.what);
    } else {
      ASSERT_EQ(result.status, 0) << c.what << ": " << result.err;
      EXPECT_EQ(Json(result)["thresholds"]["lt_db"], c.ltDb) << c.what;
    }
  }
}

TEST_F(UsageTest, ThresholdDocumentFromAPipeCountsForEveryTrace) {
  const std::string trace = StoreTrace("a.sor");
  const Result result =
      Run({"analyse", trace, trace, "--format", "json", "--thresholds", "-"}, "[NON]\nTHLoss=0.15\n");
  ASSERT_EQ(result.status, 0) << result.err;
  const std::string line = R"("lt_db":0.15,)";
  const size_t first = result.out.find(line);
  ASSERT_NE(first, std::string::npos);
  EXPECT_NE(result.out.find(line, first + 1), std::string::npos);
}

TEST_F(UsageTest, OutputFollowsLinksAndKeepsPermissions) {
  const std::string trace = StoreTrace("a.sor");
  Store("there.sor", "old");
  ASSERT_EQ(chmod(File("there.sor").c_str(), 0600), 0);
  std::filesystem::create_symlink("there.sor", File("link.sor"));
  std::filesystem::create_symlink("loop.sor", File("loop.sor"));
  ASSERT_EQ(Run({"copy", trace, File("link.sor"), "--no-proprietary"}).status, 0);
  EXPECT_TRUE(std::filesystem::is_symlink(File("link.sor")));
  EXPECT_TRUE(Load(File("there.sor")) == Load(trace));
  EXPECT_EQ(std::filesystem::status(File("there.sor")).permissions(), std::filesystem::perms(0600));
  ExpectOneLineError(Run({"copy", trace, File("loop.sor")}), 4, "link to itself");
}

TEST_F(UsageTest, OpenDescriptorTakesTheBytesBehindWhatItHas) {
  const std::string trace = StoreTrace("a.sor");
  Store("log.bin", "before");
  const int descriptor = open(File("log.bin").c_str(), O_WRONLY | O_APPEND);
  ASSERT_GE(descriptor, 0);
  const Result result = Run({"copy", trace, "/dev/fd/" + std::to_string(descriptor), "--no-proprietary"});
  close(descriptor);
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_TRUE(Load(File("log.bin")) == "before" + Load(trace));
}

TEST_F(UsageTest, ForeignTextsCannotSteerATerminal) {
  reflyze::sim::SimulatedTrace trace = reflyze::sim::Simulate(MetroLink(), 3);
  trace.record->GenParams->CMT = "bell\a red\x1B[31m csi\x9B \xE9";
  const std::string path = Store("a\x1B[2J\n.sor", Bytes(*trace.record));
  for (const char* command : {"dump", "analyse"}) {
    const Result result = Run({command, path});
    ASSERT_EQ(result.status, 0);
    for (const char* control : {"\x1B", "\a", "\x9B", ".sor\n\n"}) {
      EXPECT_EQ(result.out.find(control), std::string::npos) << command;
    }
  }
  EXPECT_NE(Run({"dump", path}).out.find("bell? red?[31m csi? \xC3\xA9"), std::string::npos);
}

}  // namespace
