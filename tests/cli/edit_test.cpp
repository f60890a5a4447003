// SPDX-License-Identifier: Apache-2.0
#include <filesystem>

#include "tests/cli/program.h"

namespace {

class EditTest : public ProgramTest {
 protected:
  nlohmann::json CardOf(const std::string& trace) const {
    return Json(Run({"show", trace, "--format", "json"}))["card"];
  }
};

TEST_F(EditTest, InPlaceKeepsTheFileAsItWas) {
  const std::string trace = StoreTrace("a.sor"), bytes = Load(trace);
  const Result dry = Run({"edit", trace, "--set", "fibre=007", "--dry-run"});
  EXPECT_EQ(dry.status, 0) << dry.err;
  EXPECT_EQ(dry.out, trace + ": fibre: \"1\" -> \"007\"\n");
  EXPECT_EQ(Load(trace), bytes);
  EXPECT_FALSE(std::filesystem::exists(trace + ".bak"));

  ASSERT_EQ(Run({"edit", trace, "--set", "fibre=007", "--in-place"}).out, dry.out);
  EXPECT_EQ(Load(trace + ".bak"), bytes);
  EXPECT_EQ(CardOf(trace)["fibre"], "007");
  std::filesystem::remove(trace + ".bak");
  ASSERT_EQ(Run({"edit", trace, "--set", "fibre=008", "--in-place", "--no-backup"}).status, 0);
  EXPECT_FALSE(std::filesystem::exists(trace + ".bak"));
  // What is so already is not written again.
  const auto time = std::filesystem::last_write_time(trace);
  EXPECT_EQ(Run({"edit", trace, "--set", "fibre=008", "--in-place"}).out, trace + ": nothing changes\n");
  EXPECT_EQ(std::filesystem::last_write_time(trace), time);
  EXPECT_FALSE(std::filesystem::exists(trace + ".bak"));
}

TEST_F(EditTest, ManyByPatternAndByTable) {
  const std::string one = StoreTrace("a.sor"), two = StoreTrace("b.sor");
  std::filesystem::create_directory(File("out"));
  ASSERT_EQ(Run({"edit", one, two, "--set", "fibre={n:03}", "--set", "cable={name}", "--first", "11", "-o",
                 File("out")})
                .status,
            0);
  EXPECT_EQ(CardOf(File("out/a.sor"))["fibre"], "011");
  EXPECT_EQ(CardOf(File("out/b.sor"))["cable"], "b");
  EXPECT_EQ(CardOf(one)["fibre"], "1");

  const std::string table = Store("t.csv", "file,fibre,to\nb.sor,B7,\n" + one + ",A7,Morrill\n");
  const nlohmann::json json = Json(Run({"edit", one, "--from", Store("one.csv", "file,to\na.sor,X\n"),
                                        "--format", "json", "-o", File("c.sor")}));
  EXPECT_EQ(json["changes"], nlohmann::json::parse(R"([{"field":"to","before":"\"B\"","after":"\"X\""}])"));
  ASSERT_EQ(Run({"edit", one, two, "--from", table, "--in-place"}).status, 0);
  EXPECT_EQ(CardOf(one)["to"], "Morrill");
  EXPECT_EQ(CardOf(two)["fibre"], "B7");
  // Without traces the table names them.
  ASSERT_EQ(Run({"edit", "--from", Store("two.csv", "file,fibre\n" + two + ",C8\n"), "--in-place"}).status,
            0);
  EXPECT_EQ(CardOf(two)["fibre"], "C8");
  EXPECT_EQ(Run({"edit", "-", "--set", "fibre=9", "-o", File("d.sor")}, Load(one)).status, 0);
  EXPECT_EQ(CardOf(File("d.sor"))["fibre"], "9");
}

// One slip, and all files stay as they are.
TEST_F(EditTest, WrongOrdersWriteNothing) {
  const std::string one = StoreTrace("a.sor"), two = StoreTrace("b.sor"), bytes = Load(one);
  std::filesystem::create_directory(File("sub"));
  const std::string same = Store("sub/a.sor", bytes);
  const struct {
    std::vector<std::string> arguments;
    int status;
    const char* part;
  } kCases[] = {
      {{one}, 2, "--set or --from"},
      {{one, "--set", "fibre=1"}, 2, "--in-place"},
      {{one, "--set", "fibre", "--in-place"}, 2, "FIELD=VALUE"},
      {{one, "--set", "fibr=1", "--in-place"}, 2, "a.sor: fibr: is no field"},
      {{one, "--set", "fibre={x}", "--in-place"}, 2, "pattern \"{x}\""},
      {{one, "--set", "fibre=1", "--in-place", "-o", File("o.sor")}, 2, "excludes"},
      {{one, "--set", "fibre=1", "--dry-run", "--no-backup"}, 2, "requires"},
      {{"-", "--set", "fibre=1", "--in-place"}, 2, "standard input"},
      {{one, "--from", Store("t.csv", "file,fibre\nx.sor,1\n"), "--in-place"}, 3, "has no line for"},
      {{one, "--from", Store("u.csv", "file,fibre\na.sor,1\nx.sor,1\n"), "--in-place"},
       3,
       "u.csv: line 3: \"x.sor\" is none"},
      {{one, "--from", Store("v.csv", "file,index\na.sor,x\n"), "--in-place"},
       2,
       "index: \"x\" is no number"},
      {{one, same, "--set", "fibre=9", "-o", File("sub")}, 2, "its result would be"},
      {{one, folder + "/sub/../a.sor", "--set", "fibre=9", "--in-place"}, 2, "written twice"},
      {{two, one, "--set", "event.99.comment=x", "--in-place"}, 2, "nothing is written"},
  };
  for (const auto& c : kCases) {
    std::vector<std::string> arguments = {"edit"};
    arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
    const Result result = Run(arguments, bytes);
    EXPECT_EQ(result.status, c.status) << result.err;
    EXPECT_NE(result.err.find(c.part), std::string::npos) << result.err;
    EXPECT_EQ(result.out, "") << c.part;
    EXPECT_EQ(Load(one), bytes) << c.part;
    EXPECT_EQ(Load(same), bytes) << c.part;
  }
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(File("sub")), {}), 1);
  // A file that can't be read is no slip, and costs its own line.
  const Result others = Run({"edit", one, File("none.sor"), two, "--set", "fibre=9", "--in-place"});
  EXPECT_EQ(others.status, 3);
  EXPECT_EQ(others.err.rfind("reflyze: " + File("none.sor"), 0), 0u) << others.err;
  EXPECT_EQ(CardOf(two)["fibre"], "9");
}

}  // namespace
