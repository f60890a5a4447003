// SPDX-License-Identifier: Apache-2.0

// How well links are measured, and how far the stated uncertainties can be trusted, over random links whose
// truth is known: draws, simulates, analyses, measures, matches, counts.

#include <unistd.h>

#include <sys/stat.h>
#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <iostream>

#include "lib/LoadedRecord.h"
#include "measure/Plausible.h"
#include "score/HardLinks.h"
#include "score/KeptTrace.h"
#include "score/MeasureScore.h"
#include "score/RandomLinks.h"
#include "src/analysis/th.h"
#include "src/module/Auto.h"

namespace {

using namespace reflyze;
using namespace reflyze::score;

struct Options {
  long count = 25;  // links a class, each in both directions where it has two ends
  std::uint64_t seed = 1;
  std::vector<std::string> classes;
  bool hard = false;
  std::string only;  // the name of one trace
  std::string traces;
  long traceCount = 10;  // of each class
  std::string keep;
  long keepCount = 5;
  double ltDb = 0.03;
  double rtDb = -72.0;
  double etDb = 3.0;
  size_t outliers = 0;
  bool json = false;
  bool verbose = false;
};

struct Kept {
  double badness;
  std::string name, account;
  sim::Link link;
  std::uint64_t seed;
};

struct Named {
  JudgedNumber number;
  std::string trace;
};

class Program {
 public:
  explicit Program(const Options& options) : options_(options) {}

  int Run() {
    nlohmann::ordered_json json;
    MeasureScore all;
    const auto run = [&](const char* name, std::uint64_t number, const auto& draw) {
      const auto& wanted = options_.classes;
      if (!wanted.empty() && std::find(wanted.begin(), wanted.end(), name) == wanted.end()) return;
      const MeasureScore score = RunClass(name, number, draw);
      all.AddAll(score);
      json[name] = score.Json();
      if (!options_.json) std::cout << score.Text(name) << "\n" << std::flush;
    };
    if (options_.hard) {
      for (const HardClass hardClass : AllHardClasses()) {
        run(NameOf(hardClass), static_cast<std::uint64_t>(hardClass) + 100,
            [hardClass](Random& random) { return HardLink(hardClass, random); });
      }
    } else {
      for (const LinkClass linkClass : AllLinkClasses()) {
        run(NameOf(linkClass), static_cast<std::uint64_t>(linkClass),
            [linkClass](Random& random) { return RandomLink(linkClass, random); });
      }
    }
    json["all"] = all.Json();
    std::cout << (options_.json ? json.dump(1) + "\n" : all.Text("all"));
    if (options_.outliers > 0) PrintOutliers();
    if (!options_.keep.empty()) KeepWorst();
    return 0;
  }

 private:
  template <class Draw>
  MeasureScore RunClass(const std::string& className, std::uint64_t number, const Draw& draw) {
    Random random(options_.seed * 1000003 + number);
    MeasureScore score;
    written_ = 0;
    for (long i = 0; i < options_.count; ++i) {
      const std::string name = className + "-" + std::to_string(i);
      const sim::Link link = draw(random);
      const std::uint64_t seed = random.Bits();
      RunLink(link, seed, name, score);
      if (IsSeenFromBothEnds(link)) RunLink(Reversed(link), seed + 1, name + "-back", score);
    }
    return score;
  }
  // A splitter is drawn as the trunk sees it; there is no other end.
  static bool IsSeenFromBothEnds(const sim::Link& link) {
    return link.sections.size() > 1 && link.name != NameOf(HardClass::kSplitter);
  }

  void RunLink(const sim::Link& link, std::uint64_t seed, const std::string& name, MeasureScore& score) {
    if (!options_.only.empty() && options_.only != name) return;
    using Clock = std::chrono::steady_clock;
    const sim::SimulatedTrace simulated = sim::Simulate(link, seed);
    TTH thresholds(nullptr);
    thresholds.THLoss = options_.ltDb;
    thresholds.THRef = options_.rtDb;
    thresholds.THEnd = options_.etDb;
    MeasureOptions asked;
    asked.leastLossDb = options_.ltDb;
    asked.leastReflectanceDb = options_.rtDb;
    const Clock::time_point begin = Clock::now();
    AnalysePlausibly(*simulated.record, thresholds,
                     [&](TTH& values) { TAuto().AnalysisSorData(simulated.record.get(), &values); });
    const Clock::time_point analysed = Clock::now();
    const std::optional<MeasuredLink> measured = MeasureLink(*simulated.record, asked);
    const std::chrono::duration<double> measuring = Clock::now() - analysed, analysing = analysed - begin;
    MeasuredTrace trace = Judge(link, simulated, measured ? &*measured : nullptr);
    trace.analysisS = analysing.count();
    trace.measuringS = measuring.count();
    score.Add(trace);
    const double badness = MeasureScore::Badness(trace);
    if (options_.outliers > 0) {
      for (const JudgedNumber& number : JudgedNumbers(trace)) numbers_.push_back({number, name});
    }
    if (options_.verbose) std::cout << name << ": " << Account(trace);
    if (!options_.traces.empty() && written_++ < options_.traceCount) {
      mkdir(options_.traces.c_str(), 0777);
      SaveTogether({{options_.traces + "/" + name + ".json", JsonOf(name, trace).dump() + "\n"}});
    }
    if (!options_.keep.empty() && badness > 0.0) kept_.push_back({badness, name, Account(trace), link, seed});
  }

  // The intervals that miss by most, on the error stream so that figures stay figures.
  void PrintOutliers() {
    const auto z = [](const Named& of) { return std::fabs(of.number.error / of.number.deviation); };
    std::stable_sort(numbers_.begin(), numbers_.end(),
                     [&](const Named& a, const Named& b) { return z(a) > z(b); });
    for (size_t i = 0; i < numbers_.size() && i < options_.outliers; ++i) {
      const JudgedNumber& number = numbers_[i].number;
      std::fprintf(stderr, "%-24s %9.4f km  snr %5.1f dB  %-15s off by %+.5f, stated %.5f (z %.1f)\n",
                   numbers_[i].trace.c_str(), number.km, number.snrDb, NameOf(number.quantity), number.error,
                   number.deviation, z(numbers_[i]));
    }
  }

  // Keeps the worst traces to be looked at, each with its link, its truth and its account.
  void KeepWorst() {
    std::stable_sort(kept_.begin(), kept_.end(),
                     [](const Kept& a, const Kept& b) { return a.badness > b.badness; });
    for (size_t i = 0; i < kept_.size() && i < static_cast<size_t>(options_.keepCount); ++i) {
      SaveKept(options_.keep,
               {kept_[i].name, kept_[i].link, kept_[i].seed, options_.ltDb, options_.rtDb, options_.etDb});
      SaveTogether({{options_.keep + "/" + kept_[i].name + ".txt", kept_[i].account}});
      std::fprintf(stderr, "kept %s/%s (badness %g)\n", options_.keep.c_str(), kept_[i].name.c_str(),
                   kept_[i].badness);
    }
  }

  Options options_;
  std::vector<Kept> kept_;
  std::vector<Named> numbers_;
  long written_ = 0;  // traces of this class
};

int Main(int argc, char** argv) {
  Options options;
  CLI::App app("Scores the measuring of links over random simulated ones.");
  app.add_option("-n", options.count, "Links a class")->capture_default_str();
  app.add_option("--seed", options.seed, "Seed of the links and their noise")->capture_default_str();
  app.add_option("--class", options.classes, "Only these classes of links");
  app.add_flag("--hard", options.hard, "Links of the hard kinds instead of the usual ones");
  app.add_option("--only", options.only, "Only the trace of this name, such as metro-3-back");
  app.add_option("--keep", options.keep, "Folder for the worst traces");
  app.add_option("--keep-count", options.keepCount, "How many of them")->capture_default_str();
  app.add_option("--traces", options.traces, "Folder for what score/draw-measured draws pictures of");
  app.add_option("--trace-count", options.traceCount, "How many of each class")->capture_default_str();
  app.add_option("--lt", options.ltDb, "Loss threshold, dB")->capture_default_str();
  app.add_option("--rt", options.rtDb, "Reflectance threshold, dB")->capture_default_str();
  app.add_option("--et", options.etDb, "End threshold, dB")->capture_default_str();
  app.add_option("--outliers", options.outliers, "Print so many of the intervals that miss by most");
  app.add_flag("--json", options.json, "Print JSON");
  app.add_flag("-v,--verbose", options.verbose, "Print every event: truth, table, measured values");
  CLI11_PARSE(app, argc, argv);
  return Program(options).Run();
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Main(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "measure_scorecard: " << error.what() << "\n";
    return 1;
  }
}
