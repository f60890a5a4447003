// SPDX-License-Identifier: Apache-2.0
#include "reflyze/inputs.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "reflyze/error.h"

namespace {

namespace fs = std::filesystem;
using reflyze::InputFile;

class InputsTest : public testing::Test {
 protected:
  InputsTest() {
    std::string pattern = (fs::temp_directory_path() / "reflyze-test-XXXXXX").string();
    folder = mkdtemp(pattern.data());
  }
  ~InputsTest() override { fs::remove_all(folder); }

  std::string Put(const std::string& name, const std::string& text = "x") const {
    fs::create_directories(fs::path(folder + "/" + name).parent_path());
    std::ofstream(folder + "/" + name) << text;
    return folder + "/" + name;
  }
  // Names below the test's folder, a problem in brackets.
  std::vector<std::string> Found(const std::vector<std::string>& names, bool folders = true) const {
    std::vector<std::string> found;
    for (const InputFile& file : reflyze::FilesOf(names, {folders})) {
      std::string name = file.name;
      if (name.rfind(folder, 0) == 0) name.erase(0, folder.size() + 1);
      found.push_back(name + (file.problem.empty() ? "" : " [" + file.problem + "]"));
    }
    return found;
  }
  using Names = std::vector<std::string>;

  std::string folder;
};

TEST_F(InputsTest, NumbersInNamesCount) {
  Names names = {"f10", "f_2a", "f2", "f02", "f", "F3", "f2b", "f99999999999999999999999", "f1_10", "f1_9"};
  std::sort(names.begin(), names.end(), reflyze::NaturalLess);
  EXPECT_EQ(names, (Names{"F3", "f", "f1_9", "f1_10", "f02", "f2", "f2b", "f10", "f99999999999999999999999",
                          "f_2a"}));
}

TEST_F(InputsTest, FoldersListsAndPatternsGiveTheirFilesInOrder) {
  for (const char* name : {"c/f_10.sor", "c/f_2.SOR", "c/notes.txt", "c/b/f_1.msor", "odd[1].sor"}) Put(name);
  EXPECT_EQ(Found({folder + "/c"}), (Names{"c/b/f_1.msor", "c/f_2.SOR", "c/f_10.sor"}));
  EXPECT_EQ(reflyze::FilesOf({folder + "/c"}, {true})[0].below, "b/f_1.msor");
  EXPECT_EQ(Found({folder + "/c/f_*"}), (Names{"c/f_2.SOR", "c/f_10.sor"}));
  EXPECT_EQ(Found({folder + "/odd[1].sor"}), (Names{"odd[1].sor"}))
      << "the name itself, not what it would match";
  EXPECT_EQ(Found({folder + "/c"}, false), (Names{"c"})) << "a folder only when asked for";
  const std::string list = Put("list", "# a comment\r\n" + folder + "/c/f_*\r\n\r\nnone.sor\n-\n");
  EXPECT_EQ(Found({"@" + list, "-"}), (Names{"c/f_2.SOR", "c/f_10.sor", "none.sor",
                                             "list [names standard input, which a list can't]", "-"}));
}

TEST_F(InputsTest, WhatHasNoEndOrNothingInItIsAProblemInItsPlace) {
  Put("c/a.sor");
  fs::create_directory_symlink(folder + "/c", folder + "/c/loop");
  EXPECT_EQ(Found({folder + "/c"}), (Names{"c/a.sor", "c/loop [leads back to a folder that it lies in]"}));
  fs::create_directory(folder + "/empty");
  std::string deep = folder + "/deep";
  for (int i = 0; i < 70; ++i) deep += "/d";
  fs::create_directories(deep);
  const std::string one = Put("one", "@" + folder + "/two\n"), two = Put("two", "@" + one + "\n");
  const std::string zero = Put("zero", std::string("a\0b", 3));
  const Names found = Found(
      {folder + "/empty", folder + "/deep", "@" + one, "@" + folder + "/none", folder + "/q*", "@" + zero});
  ASSERT_EQ(found.size(), 6u);
  EXPECT_EQ(found[0], "empty [holds no file that ends in .sor]");
  EXPECT_NE(found[1].find("[lies more than 64 folders deep]"), std::string::npos);
  EXPECT_EQ(found[2], "one [names itself, so that the list has no end]");
  EXPECT_EQ(found[3], "none [No such file or directory]");
  EXPECT_EQ(found[4], "q* [no file has such a name]");
  EXPECT_EQ(found[5], "zero [is no list of names]");
}

TEST_F(InputsTest, TwoResultsNeverShareAPlace) {
  const std::vector<InputFile> files = {{"a/x.sor", "x.sor", ""}, {"b/x.sor", "x.sor", ""}};
  try {
    reflyze::PlacesBelow("out", files);
    FAIL();
  } catch (const reflyze::Error& error) {
    EXPECT_EQ(std::string(error.what()), "b/x.sor: its result would be out/x.sor, as that of a/x.sor");
    EXPECT_EQ(error.kind(), reflyze::ErrorKind::kUsage);
  }
}

}  // namespace
