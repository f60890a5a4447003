// SPDX-License-Identifier: Apache-2.0
#include "util/tinifile.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <sstream>
#include <string>

#include "tests/support/assertions.h"

namespace {

class TIniTest : public ::testing::Test {
 protected:
  TIniTest() : name_(::testing::TempDir() + "ini" + std::to_string(getpid())) {}
  void TearDown() override { std::remove(name_.c_str()); }

  void Store(const std::string& text) const { std::ofstream(name_, std::ios::binary) << text; }
  std::string Stored() const {
    std::ifstream in(name_, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
  }
  static std::string Shown(TIni& ini) {
    TString text;
    EXPECT_EQ(ini.ToString(text), 0);
    return text.c_str();
  }
  std::string ReadAndShown(const std::string& text) const {
    Store(text);
    TIni ini(name_.c_str());
    EXPECT_EQ(ini.Read(nullptr), 0);
    return Shown(ini);
  }
  static std::string ParsedAndShown(const std::string& text) {
    TIni ini;
    EXPECT_EQ(ini.FromString(text.c_str()), 0);
    return Shown(ini);
  }

  const std::string name_;
};

TEST_F(TIniTest, LinesBecomeSectionsAndKeys) {
  const struct {
    const char* what;
    const char* text;  // each line ends in CR LF
    const char* shown;
  } kCases[] = {
      {"nothing", "", ""},
      {"blank lines", "\r\n\r\n", ""},
      {"keys before any header", "a=1\r\n", "a=1\r\n\r\n"},
      {"a value with an equals sign", "[S]\r\na=b=c\r\n", "[S]\r\na=b=c\r\n\r\n"},
      {"no value and an empty one", "[S]\r\na\r\nb=\r\n", "[S]\r\na\r\nb=\r\n\r\n"},
      {"a later value takes the place of the first", "a=1\r\nb=3\r\na=2\r\n", "a=2\r\nb=3\r\n\r\n"},
      {"a later line without a value takes it away", "a=1\r\na\r\n", "a\r\n\r\n"},
      {"names differ by case", "a=1\r\nA=2\r\n", "a=1\r\nA=2\r\n\r\n"},
      {"blanks count", " a = 1 \r\n", " a = 1 \r\n\r\n"},
      {"comments stay apart", "[S]\r\n;a=b\r\n#c\r\n;a=b\r\n", "[S]\r\n;a=b\r\n#c\r\n;a=b\r\n\r\n"},
      {"a header again continues", "[S]\r\na=1\r\n[T]\r\nb=2\r\n[S]\r\nc=3\r\n",
       "[S]\r\na=1\r\nc=3\r\n\r\n[T]\r\nb=2\r\n\r\n"},
      {"a section without keys", "[S]\r\n[T]\r\na=1\r\n", "[T]\r\na=1\r\n\r\n"},
      {"a header without its bracket", "[Sect\r\na=1\r\n", "[Sec]\r\na=1\r\n\r\n"},
      {"a bracket alone", "[\r\na=1\r\n", "a=1\r\n\r\n"},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(ReadAndShown(c.text), c.shown) << c.what;
    EXPECT_EQ(ParsedAndShown(c.text), c.shown) << c.what;
    EXPECT_EQ(ReadAndShown(c.shown), c.shown) << c.what;  // what was written reads as the same
  }
}

// Files of both worlds read alike; a text in memory has to end its lines in CR LF.
TEST_F(TIniTest, LineEndsAndWhatTheyCost) {
  EXPECT_EQ(ReadAndShown("[S]\nab=12\n"), "[S]\r\nab=12\r\n\r\n");
  EXPECT_EQ(ReadAndShown("ab=12"), "ab=1\r\n\r\n");
  EXPECT_EQ(ReadAndShown("\n\n[\n[]\na=1\n"), "a=1\r\n\r\n");
  EXPECT_EQ(ParsedAndShown("ab=12\nc=34"), "ab=1\r\nc=34\r\n\r\n");
  EXPECT_EQ(ParsedAndShown("\n\na=12\r\n[S]"), "a=12\r\n\r\n");
  EXPECT_EQ(ParsedAndShown("["), "");
  const std::string longLine = "k=" + std::string(5000, 'v');
  EXPECT_EQ(ReadAndShown(longLine + "\r\n"),
            longLine.substr(0, 4094) + "\r\n" + longLine.substr(4095) + "\r\n\r\n");
  EXPECT_EQ(ReadAndShown(std::string("\0a\nb=1\n", 7)), "b=1\r\n\r\n");
}

TEST_F(TIniTest, GettersFallBackAndLeaveTheKeyBehind) {
  const struct {
    const char* line;
    const char* asString;
    int asInt;
    double asDouble;
  } kCases[] = {
      {"k=0.25", "0.25", 0, 0.25}, {"k=-12 dB", "-12 dB", -12, -12},
      {"k=text", "text", 7, 7},    {"k=", "def", 7, 0},  // the end of an empty value counts as read
      {"k", "def", 7, 7},          {"other=1", "def", 7, 7},
  };
  for (const auto& c : kCases) {
    TIni ini;
    ini.AddKey("S", c.line);
    EXPECT_STREQ(ini.GetString("S", "k", "def"), c.asString) << c.line;
    EXPECT_EQ(ini.GetInt("S", "k", 7), c.asInt) << c.line;
    EXPECT_EQ(ini.GetDouble("S", "k", 7.0), c.asDouble) << c.line;
  }
  TIni ini;
  EXPECT_EQ(ini.GetDouble("S", "K", 1.0), 1.0);
  EXPECT_EQ(Shown(ini), "[S]\r\nK\r\n\r\n");
  TIniSection* section = ini.GetSection(0);
  EXPECT_EQ(section->GetInt("absent", 7, false), 7);
  EXPECT_EQ(section->GetKeysNum(), 1);
}

TEST_F(TIniTest, SettersWriteNumbersShort) {
  TIni ini;
  ini.SetDouble("S", "loss", 0.1 + 0.2);
  ini.SetDouble("S", "owt", 123456789.0);
  ini.SetInt("S", "count", -3);
  ini.SetString("S", "none", nullptr);
  TIniSection* section = ini.GetSection(0);
  section->SetInt1("count", 0);
  section->SetInt1("zero", 0);
  section->SetInt1("five", 5);
  EXPECT_EQ(Shown(ini), "[S]\r\nloss=0.3\r\nowt=1.23457e+08\r\ncount=-3\r\nnone\r\nfive=5\r\n\r\n");
}

TEST_F(TIniTest, FindsDeletesAndCopies) {
  TIni ini;
  ini.AddKey("S", "a", "1");
  ini.AddKey("S", "b", nullptr);
  ini.AddKey("T", "c", "3");
  int i = -1;
  EXPECT_STREQ(ini.FindKey("S", "b", i)->Name(), "b");
  EXPECT_EQ(i, 1);
  EXPECT_EQ(ini.GetSection(0)->FindKey("z", i), nullptr);
  EXPECT_EQ(i, 2);
  EXPECT_EQ(ini.FindSection("U", i), nullptr);
  EXPECT_EQ(i, 2);
  EXPECT_EQ(ini.FindKey("U", "a", i), nullptr);
  EXPECT_EQ(ini.GetSectionsNum(), 2);

  TIniSection* twice = new TIniSection(ini.GetSection(0));
  twice->AddKey(new TIniKey("a=9"));  // a second key of the same name
  ini.AddSection(twice);
  ini.AddSection(new TIniSection(twice));  // the copy merges them
  ini.DelKey("S", "a");
  ini.DelKey("U", "a");
  ini.DelSection("T");
  EXPECT_EQ(Shown(ini), "[S]\r\nb\r\n\r\n[S]\r\na=1\r\nb\r\na=9\r\n\r\n[S]\r\na=9\r\nb\r\n\r\n");

  EXPECT_STREQ(ini.FindOrCreateKey("S", "x=y")->GetString(""), "y");
  using reflyze::test::AssertionOf;
  EXPECT_EQ(AssertionOf([&] { ini.GetSection(3); }), "index < GetSectionsNum()");
  EXPECT_EQ(AssertionOf([&] { ini.GetSection(0)->GetKey(2); }), "index < GetKeysNum()");
}

TEST_F(TIniTest, AnAbsentFileLeavesTheDocument) {
  TIni ini((name_ + ".absent").c_str());
  ini.SetInt("S", "a", 1);
  EXPECT_EQ(ini.Read(nullptr), 1);
  EXPECT_EQ(Shown(ini), "[S]\r\na=1\r\n\r\n");
  EXPECT_EQ(ini.Write("/no/such/folder/file.ini"), 1);
}

TEST_F(TIniTest, WritesForItsOwnerAlone) {
  Store("old content that is longer than the new one\r\n");
  chmod(name_.c_str(), 0644);
  TIni ini(name_.c_str());
  ini.SetInt("S", "a", 1);
  ini.AddSection("Empty");
  EXPECT_EQ(ini.Write(nullptr), 0);
  EXPECT_EQ(Stored(), "[S]\r\na=1\r\n\r\n");
  struct stat info {};
  stat(name_.c_str(), &info);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  ini.WriteEmptySections = 1;
  EXPECT_EQ(ini.Write(nullptr), 0);
  EXPECT_EQ(Stored(), "[S]\r\na=1\r\n\r\n[Empty]\r\n\r\n");
}

TEST_F(TIniTest, TellsWhatKeptItFromWriting) {
  TIni ini(name_.c_str());
  ini.SetString("S", "a", "a value that does not fit");

  // A medium that is full: the process may write 10 bytes to a file and not one more.
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const auto onSignal = std::signal(SIGXFSZ, SIG_IGN);
  const rlimit full{10, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &full);
  const int whenFull = ini.Write(nullptr);
  setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, onSignal);
  EXPECT_EQ(whenFull, 5);

  // A folder that may not be entered; the superuser enters everywhere, so a plain user tries.
  const std::string folder = name_ + ".closed";
  ASSERT_EQ(mkdir(folder.c_str(), 0), 0);
  const bool superuser = geteuid() == 0;
  ASSERT_TRUE(!superuser || seteuid(65534) == 0);
  const int whenClosed = ini.Write((folder + "/file.ini").c_str());
  ASSERT_TRUE(!superuser || seteuid(0) == 0);
  rmdir(folder.c_str());
  EXPECT_EQ(whenClosed, 4);
}

}  // namespace
