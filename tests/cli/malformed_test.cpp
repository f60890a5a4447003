// SPDX-License-Identifier: Apache-2.0
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <thread>

#include "tests/cli/program.h"
#include "tests/sor/recordBytes.h"

// Files that are broken in every way that one can think of. Each is read as far as it goes or refused in one
// line, soon and in little memory, and what was stored before is never lost.

namespace {

using recordtest::Embedded;
using recordtest::EmbeddedBody;
using recordtest::PointsBody;
using recordtest::RecordLayout;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
// Valgrind needs fifty times as long: REFLYZE_STRIDE=11 takes only each eleventh of the broken files, and
// time and memory are not tested.
const int kStride = std::getenv("REFLYZE_STRIDE") != nullptr ? std::atoi(std::getenv("REFLYZE_STRIDE")) : 1;
const bool kMeasured = !kSanitized && kStride == 1;
const double kMostSeconds = kMeasured ? 1.0 : 10.0 * kStride;
// A list announces at most 65,535 entries, all of which are kept. An entry with its texts, its copy and its
// listing takes up to 2 KB, all of them 128 MB; another copy would be half as much again.
constexpr long kMostKilobytes = 160 * 1024;

class MalformedTest : public ProgramTest {
 protected:
  // A record of 20 points with something to count in every block.
  static std::string SmallRecord() {
    reflyze::sim::Link link = MetroLink();
    link.points = 20;
    link.rangeKm = 0.0;
    TSorData record;
    record.Assign(*reflyze::sim::Simulate(link, 1).record);
    record.KeyEvents->events->AddData(new TSorBlockKeyEvents1E());
    record.KeyEvents->TNKE = 1;
    record.LnkParams->InsertLandmark(new TSorBlockLinkParamLandmark());
    record.RFTSEvents->SetLevelName("level");
    record.RFTSEvents->SetTNRFTSE(1);
    record.RFTSParams->SetTNL(1);
    auto* embedded = new TEmbData1E();
    embedded->SetDescription("note");
    embedded->SetData(const_cast<char*>("text"), 4);
    record.EmbData->AddData(embedded);
    return Bytes(record);
  }

  // Whether the command reads the bytes. It either refuses them, in one line with status 3, or reads them
  // with a few warnings at most.
  bool Reads(const std::string& command, const std::string& bytes, const std::string& what) const {
    const std::clock_t start = std::clock();
    const Result result = Run({command, "-"}, bytes);
    EXPECT_LT(static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC, kMostSeconds) << command << what;
    if (result.status != 0) ExpectOneLineError(result, 3, command + what);
    EXPECT_LE(std::count(result.err.begin(), result.err.end(), '\n'), 3) << command << what;
    return result.status == 0;
  }

  // Runs the work in a process of its own, with no more memory than the worst of its inputs may take.
  static void ExpectLittleMemory(const std::function<void()>& work) {
    const auto peakKilobytes = [](const std::function<void()>& body) {
      const pid_t child = fork();
      if (child == 0) {
        body();
        _exit(testing::Test::HasFailure() ? 1 : 0);
      }
      int status = 0;
      struct rusage usage {};
      wait4(child, &status, 0, &usage);
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
      return usage.ru_maxrss;
    };
    const long before = peakKilobytes([] {});
    const long peak = peakKilobytes(work);
    EXPECT_TRUE(!kMeasured || peak - before < kMostKilobytes) << peak - before << " KB";
  }
};

TEST_F(MalformedTest, CutAtEveryByte) {
  const std::string whole = SmallRecord();
  const size_t mapSize = whole.find("GenParams", 100);  // the block's own ID, behind the line in the map
  constexpr size_t kHeadBytes = 8 + 12, kPoints = 20;
  const size_t lastSample = whole.find("DataPts", mapSize) + kHeadBytes + 2 * kPoints;
  ExpectLittleMemory([&] {
    for (size_t size = 0; size < whole.size(); size += static_cast<size_t>(kStride)) {
      const std::string what = " of the first bytes: " + std::to_string(size);
      EXPECT_EQ(Reads("dump", whole.substr(0, size), what), size >= mapSize) << size;
      EXPECT_EQ(Reads("analyse", whole.substr(0, size), what), size >= lastSample) << size;
    }
  });
}

// Every count and size of the file is among these numbers. Each byte begins one wrong number: -1, 0 or the
// maximum of two or four bytes, or one more or less. The kinds take turns from byte to byte, out of step with
// fields of two, four and eight bytes. Listing takes longest, so each third is listed.
TEST_F(MalformedTest, EveryNumberLies) {
  const std::string whole = SmallRecord();
  ExpectLittleMemory([&] {
    for (size_t place = 0; place + 4 <= whole.size(); place += static_cast<size_t>(kStride)) {
      const auto low = static_cast<unsigned char>(whole[place]);
      const std::string lies[] = {std::string(2, '\xFF'),
                                  std::string(4, '\xFF'),
                                  std::string(2, '\0'),
                                  std::string(4, '\0'),
                                  "\xFF\x7F",
                                  "\xFF\xFF\xFF\x7F",
                                  std::string(1, static_cast<char>(low + 1)),
                                  std::string(1, static_cast<char>(low - 1))};
      const size_t lie = (5 * place + place / 8) % std::size(lies);
      std::string bytes = whole;
      bytes.replace(place, lies[lie].size(), lies[lie]);
      Reads(place % 3 == 0 ? "dump" : "analyse", bytes,
            " at " + std::to_string(place) + " lie " + std::to_string(lie));
    }
  });
}

TEST_F(MalformedTest, WithoutEnd) {
  std::string nested = RecordLayout().Block("DataPts", 200, PointsBody({1, 2})).bytes();
  for (int depth = 0; depth < 1000; ++depth) {
    const std::string inner = Embedded("SOR", static_cast<long>(nested.size()), nested);
    nested = RecordLayout().Block("EmbData", 200, EmbeddedBody({inner})).bytes();
  }
  RecordLayout manyBlocks;
  for (int i = 0; i < 32766; ++i) manyBlocks.Block("B", 200, "");
  const struct {
    const char* what;
    std::string bytes;
    bool read;
  } kCases[] = {
      {"text", RecordLayout().Block("GenParams", 200, "EN" + std::string(100000, 'x')).bytes(), true},
      {"name of a block", "Map" + std::string("\0\xC8\0\0\0\0\0\xFF\x7F", 9) + std::string(100000, 'x'),
       false},
      {"nesting", nested, false},
      {"map of 32,767 blocks", manyBlocks.bytes(), true},
  };
  for (const auto& c : kCases) {
    ExpectLittleMemory([&] { EXPECT_EQ(Reads("dump", c.bytes, c.what), c.read) << c.what; });
    ExpectLittleMemory([&] { EXPECT_FALSE(Reads("analyse", c.bytes, c.what)) << c.what; });
  }
}

// A process that is killed leaves the old file or the new one.
TEST_F(MalformedTest, KilledWhileWriting) {
  using Clock = std::chrono::steady_clock;
  reflyze::sim::Link link = MetroLink();
  link.points = 500000;
  link.spacingM = 0.0;
  const std::string trace = Store("trace.sor", Bytes(*reflyze::sim::Simulate(link, 1).record));
  const auto start = Clock::now();
  ASSERT_EQ(Run({"copy", trace, File("new.sor")}).status, 0);
  const auto whole = Clock::now() - start;
  const size_t size = Load(File("new.sor")).size();
  const int kRounds = std::max(60 / kStride, 2);
  int replaced = 0;
  for (int round = 0; round < kRounds; ++round) {
    const std::string target = Store("target.sor", "what was there before");
    const pid_t child = fork();
    if (child == 0) _exit(Run({"copy", trace, target}).status);
    std::this_thread::sleep_for(whole * 2 * round / kRounds);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    const std::string now = Load(target);
    if (now == "what was there before") continue;
    ++replaced;
    EXPECT_EQ(now.size(), size) << round;
    const nlohmann::json sum = Json(Run({"dump", target, "--format", "json", "--no-data"}))["Cksum"];
    EXPECT_EQ(sum["CRC"], sum["computed"]) << round;
  }
  EXPECT_LT(replaced, kRounds);  // else no process was killed in time
}

}  // namespace
