// SPDX-License-Identifier: Apache-2.0
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <map>
#include <random>
#include <thread>

#include "cli/OrderedWork.h"
#include "lib/Baseline.h"
#include "src/module/Module.h"
#include "tests/cli/program.h"

// Many traces in one run of the program, or in one life of the module: none may change the result of another.

namespace {

class ManyTest : public ProgramTest {};

// Good and bad traces, one that ends early, two with parts too new, which the log reports, and standard input
// twice.
TEST_F(ManyTest, ResultsErrorsAndLogAreTheSameForAnyNumberOfJobs) {
  const std::string bytes = Load(StoreTrace("a.sor"));
  std::string tooNew = bytes;
  const size_t revision = tooNew.find("KeyEvents") + 10;
  std::vector<std::string> traces = {File("a.sor"), File("none.sor"), "-"};
  for (const char low : {44, 45}) {
    tooNew[revision] = low, tooNew[revision + 1] = 1;  // 300, 301
    traces.push_back(Store("new" + std::to_string(low) + ".sor", tooNew));
  }
  for (int i = 0; i < 20; ++i) {
    reflyze::sim::Link link = MetroLink();
    link.points = 2000 + 400 * i;
    traces.push_back(Store(std::to_string(i) + ".sor", Bytes(*reflyze::sim::Simulate(link, 7).record)));
  }
  traces.insert(traces.begin() + 9, {Store("cut.sor", bytes.substr(0, bytes.size() - 3)), folder, "-"});

  const auto run = [&](const char* jobs, const char* format) {
    std::vector<std::string> arguments = {"analyse", "--format", format, "--log", File("log"), "-j", jobs};
    arguments.insert(arguments.end(), traces.begin(), traces.end());
    std::filesystem::remove(File("log"));
    const Result result = Run(arguments, bytes);
    std::string log = std::to_string(result.status) + result.out + result.err;
    std::istringstream lines(Load(File("log")));
    for (std::string line; std::getline(lines, line);)
      log += line.substr(std::min(line.find("  D"), line.size()));
    return std::pair(log, result);
  };
  for (const char* format : {"text", "json", "csv"}) {
    const auto [alone, result] = run("1", format);
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 4) << result.err;
    EXPECT_LT(alone.find("RevNo=300"), alone.find("RevNo=301"));
    EXPECT_NE(alone.find("RevNo=301"), std::string::npos);
    EXPECT_EQ(alone.find("file,number,"), format == std::string("csv") ? 1 : alone.npos)
        << "one heading for all";
    EXPECT_EQ(alone.find("file,number,", 2), alone.npos);
    for (const char* jobs : {"2", "8"}) EXPECT_EQ(run(jobs, format).first, alone) << jobs << " " << format;
  }
  ExpectOneLineError(Run({"analyse", traces[0], "--jobs", "0"}), 2, "no jobs");
}

TEST_F(ManyTest, SlowPieceHeapsUpFewResultsAndAFailureIsItsOwn) {
  std::atomic<int> begun{0};
  int begunDuringFirst = 0;
  reflyze::cli::OrderedWork<size_t> work(1000, 3, [&](size_t piece) {
    ++begun;
    if (piece == 0) {
      while (begun < 19) std::this_thread::yield();  // as many as three threads may begin
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      begunDuringFirst = begun;
    }
    if (piece == 500) throw std::runtime_error("500");
    return piece;
  });
  for (size_t i = 0; i < 900; ++i) {  // the other pieces are never begun
    if (i == 500) {
      EXPECT_THROW(work.Next(), std::runtime_error);
    } else {
      ASSERT_EQ(work.Next(), i);
    }
  }
  EXPECT_EQ(begunDuringFirst, 19);
}

// One call of the module on records read anew, and the bytes of the record that it leaves.
class DeterminismTest : public ProgramTest {
 protected:
  using Call = std::function<std::string()>;

  static std::unique_ptr<TSorData> Read(const std::string& bytes) {
    TSorFile file(bytes.data(), bytes.size());
    auto record = std::make_unique<TSorData>();
    record->Read(&file);
    return record;
  }
  static std::string Serve(TCmdASF command, TSorData& current, TTH* thresholds, TSorData* baseline) {
    void* slots[11] = {&current, thresholds};
    slots[10] = baseline;
    long value = 0;
    const int result = ServiceFunction(command, value, slots);
    current.QRTParams->LDTS = 0;  // a record without this block gets the time of its reading
    return std::to_string(result) + Bytes(current);
  }
  static std::string Analyse(const std::string& bytes, int noShortAnalysis) {
    TTH thresholds;
    thresholds.THLoss = 0.04;
    thresholds.noShortAnalysis = noShortAnalysis;
    return Serve(cmdAnalyse, *Read(bytes), &thresholds, nullptr);
  }
  static std::string Compare(const std::string& baselineBytes, const std::string& bytes) {
    const auto baseline = Read(baselineBytes), current = Read(bytes);
    Serve(cmdAnalyse, *baseline, nullptr, nullptr);
    reflyze::Monitoring monitoring;
    monitoring.level = "main";
    reflyze::MakeBaselineOf(*baseline, monitoring);
    reflyze::MakeComparable(*baseline, *current);
    return Serve(cmdCompare, *current, nullptr, baseline.get());
  }

  static std::vector<std::pair<std::string, Call>> Calls() {
    std::map<std::string, std::string> traces;
    for (const auto& file : std::filesystem::directory_iterator(REFLYZE_SOURCE_DIR "/examples")) {
      if (file.path().extension() == ".sor") traces[file.path().stem()] = Load(file.path());
    }
    for (const double noiseDb : {-24.0, -34.0}) {
      reflyze::sim::Link link = MetroLink();
      link.receiver.noiseDb = noiseDb;
      traces["noise" + std::to_string(noiseDb)] = Bytes(*reflyze::sim::Simulate(link, 11).record);
    }
    const std::string good = traces["baseline-40km"], bad = traces["current-40km"];
    std::vector<std::pair<std::string, Call>> calls = {{"compare", [=] { return Compare(good, bad); }},
                                                       {"compare back", [=] { return Compare(bad, good); }}};
    for (const auto& [name, bytes] : traces) {
      calls.emplace_back(name, [b = bytes] { return Analyse(b, 0); });
      calls.emplace_back(name + ", direct", [b = bytes] { return Analyse(b, 1); });
    }
    return calls;
  }

  // The result of a process that has done nothing else.
  std::string Alone(const Call& call) const {
    const pid_t child = fork();
    if (child == 0) {
      Store("alone", call());
      _exit(0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status == 0 ? Load(File("alone")) : "ended with " + std::to_string(status);
  }
};

// In any order, on several threads, and on memory that is filled with other rubbish in each round.
// REFLYZE_ROUNDS sets the number of rounds.
TEST_F(DeterminismTest, NothingThatWentBeforeOrGoesOnBesideShowsInAResult) {
  const char* const wanted = std::getenv("REFLYZE_ROUNDS");
  const int rounds = wanted != nullptr ? std::atoi(wanted) : 6;
  std::vector<std::pair<std::string, Call>> calls = Calls();
  std::map<std::string, std::string> alone;
  for (const auto& [name, call] : calls) {
    alone[name] = Alone(call);
    ASSERT_GT(alone[name].size(), 1000u) << name << " " << alone[name];
  }
  for (int round = 0; round < rounds; ++round) {
    mallopt(M_PERTURB, round % 256);
    std::shuffle(calls.begin(), calls.end(), std::mt19937(static_cast<unsigned>(round)));
    reflyze::cli::OrderedWork<bool> work(
        calls.size(), 3, [&](size_t i) { return calls[i].second() == alone.at(calls[i].first); });
    for (const auto& call : calls) ASSERT_TRUE(work.Next()) << call.first << " in round " << round;
  }
  mallopt(M_PERTURB, 0);
}

}  // namespace
