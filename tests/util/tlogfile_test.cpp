// SPDX-License-Identifier: Apache-2.0
#include "util/tlogfile.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

#include "tests/support/assertions.h"

namespace {

// A log in a file of its own.
class TLogFileTest : public ::testing::Test {
 protected:
  TLogFileTest() : name_(::testing::TempDir() + "log" + std::to_string(getpid())) {}
  void SetUp() override { std::remove(name_.c_str()); }
  void TearDown() override { std::remove(name_.c_str()); }

  // Every "Wed Mar  4 10:20:30 2026", which has no line feed of its own, becomes "TIME".
  static std::string WithoutTimes(std::string text) {
    constexpr std::size_t kLength = 24;
    for (std::size_t at = 0; at + kLength <= text.size(); ++at) {
      const auto is = [&](std::size_t i, char c) { return text[at + i] == c; };
      if (is(3, ' ') && is(7, ' ') && is(10, ' ') && is(13, ':') && is(16, ':') && is(19, ' ')) {
        text.replace(at, kLength, "TIME");
      }
    }
    return text;
  }
  std::string Written() const {
    std::ifstream in(name_);
    std::ostringstream text;
    text << in.rdbuf();
    return WithoutTimes(text.str());
  }

  const std::string name_;
  const std::string kHeader =
      std::string(61, '-') + "\nTIME\n\n" + std::string(61, '-') + "\n";  // before the first entry
};

TEST_F(TLogFileTest, WritesOneHeaderThenEntries) {
  TLogFile log(name_.c_str(), TLogFile::wmAppend, TLogFile::lmPrimaryFile);
  log.Error('D', "GenParams", "read error: RevNo=300 > 209");
  log.Message('A', "id", nullptr);
  log.Warning('A', nullptr, "text");
  log.Data("events", -5);
  log.Info("a", "b");
  EXPECT_EQ(Written(), kHeader +
                           "TIME  D E\t GenParams read error: RevNo=300 > 209\n"
                           "TIME  A M\t id \n"
                           "TIME  A W\t  text\n"
                           "events = -5\n"
                           "a b\n");
}

TEST_F(TLogFileTest, KindsAreSwitchedByBits) {
  for (int bits = 0; bits < 8; ++bits) {
    TLogFile log(name_.c_str(), TLogFile::wmOverwrite, TLogFile::lmPrimaryFile);
    log.SetLogLevel(bits);
    log.Error('a', "x", "");
    log.Warning('a', "x", "");
    log.Message('a', "x", "");
    const std::string text = Written();
    EXPECT_EQ(text.find("a E") != std::string::npos, (bits & 1) != 0) << bits;
    EXPECT_EQ(text.find("a W") != std::string::npos, (bits & 2) != 0) << bits;
    EXPECT_EQ(text.find("a M") != std::string::npos, (bits & 4) != 0) << bits;
  }
}

TEST_F(TLogFileTest, AppendsOrOverwrites) {
  const struct {
    TLogFile::WritingMode writing;
    const char* written;
  } kRuns[] = {{TLogFile::wmAppend, "run 1\n"},
               {TLogFile::wmAppend, "run 1\nrun 2\n"},
               {TLogFile::wmOverwrite, "run 3\n"}};
  int number = 0;
  for (const auto& run : kRuns) {
    TLogFile log(name_.c_str(), run.writing, TLogFile::lmPrimaryFile);
    log.Info("run", std::to_string(++number).c_str());
    EXPECT_EQ(Written(), run.written);
  }
}

TEST_F(TLogFileTest, ModeChoosesThePlaces) {
  const struct {
    TLogFile::LoggingMode mode;
    bool toFile, toStdErr;
  } kCases[] = {{TLogFile::lmPrimaryFile, true, false},
                {TLogFile::lmPrimaryFileAndStdErr, true, true},
                {TLogFile::lmStdErr, false, true}};
  for (const auto& c : kCases) {
    TLogFile log(name_.c_str(), TLogFile::wmOverwrite, TLogFile::lmPrimaryFile);
    log.SetLoggingMode(c.mode);
    EXPECT_EQ(log.GetLoggingMode(), c.mode);
    ::testing::internal::CaptureStderr();
    log.Error('D', "Map", "text");
    const std::string expected = kHeader + "TIME  D E\t Map text\n";
    EXPECT_EQ(WithoutTimes(::testing::internal::GetCapturedStderr()), c.toStdErr ? expected : "");
    EXPECT_EQ(Written(), c.toFile ? expected : "");
  }
}

TEST_F(TLogFileTest, WithoutItsFileItIsSilentOrAnAssertion) {
  const std::string nowhere = name_ + "/no/such/folder";
  TLogFile toStdErr(nowhere.c_str(), TLogFile::wmAppend, TLogFile::lmStdErr);
  ::testing::internal::CaptureStderr();
  toStdErr.Error('D', "Map", "text");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");

  TLogFile toFile(nowhere.c_str(), TLogFile::wmAppend, TLogFile::lmPrimaryFile);
  using reflyze::test::AssertionOf;
  EXPECT_EQ(AssertionOf([&] { toFile.Error('D', "Map", "text"); }), "file");
  EXPECT_EQ(AssertionOf([&] { toFile.Info("a", "b"); }), "file");
  EXPECT_EQ(AssertionOf([&] { toFile.Data("a", 1); }), "file");
}

}  // namespace
