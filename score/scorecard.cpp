// SPDX-License-Identifier: Apache-2.0

// How well the analysis does over random links whose truth is known: draws, simulates, analyses, matches,
// counts.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <iostream>

#include "lib/Text.h"
#include "measure/Plausible.h"
#include "score/KeptTrace.h"
#include "score/RandomLinks.h"
#include "score/Score.h"
#include "sim/Simulate.h"
#include "sim/Waveform.h"
#include "src/analysis/th.h"
#include "src/module/Auto.h"

namespace {

using namespace reflyze;
using namespace reflyze::score;

struct Options {
  long count = 25;  // links a class, each in both directions where it has two ends
  std::uint64_t seed = 1;
  std::vector<std::string> classes;
  std::string keep;
  long keepCount = 5;
  double ltDb = 0.03;
  double rtDb = -72.0;
  double etDb = 3.0;
  std::string road = "program";
  bool json = false;
};

struct Kept {
  long badness;
  std::string name;
  sim::Link link;
  std::uint64_t seed;
};

class Scorecard {
 public:
  explicit Scorecard(const Options& options) : options_(options) {}

  int Run() {
    nlohmann::ordered_json json;
    Score all;
    for (const LinkClass linkClass : AllLinkClasses()) {
      const auto& wanted = options_.classes;
      if (!wanted.empty() && std::find(wanted.begin(), wanted.end(), NameOf(linkClass)) == wanted.end())
        continue;
      const Score score = RunClass(linkClass);
      all.AddAll(score);
      json[NameOf(linkClass)] = score.Json();
      if (!options_.json) std::cout << score.Text(NameOf(linkClass)) << "\n";
    }
    json["all"] = all.Json();
    std::cout << (options_.json ? json.dump(1) + "\n" : all.Text("all"));
    if (!options_.keep.empty()) KeepWorst();
    return 0;
  }

 private:
  Score RunClass(LinkClass linkClass) {
    Random random(options_.seed * 1000003 + static_cast<std::uint64_t>(linkClass));
    Score forward, backward;
    for (long i = 0; i < options_.count; ++i) {
      Progress(NameOf(linkClass), i + 1);
      const sim::Link link = RandomLink(linkClass, random);
      const std::uint64_t seed = random.Bits();
      RunLink(link, seed, std::string(NameOf(linkClass)) + "-" + std::to_string(i), forward);
      if (link.sections.size() > 1) {
        RunLink(Reversed(link), seed + 1, std::string(NameOf(linkClass)) + "-" + std::to_string(i) + "-back",
                backward);
      }
    }
    Progress("", 0);
    forward.AddAll(backward);
    return forward;
  }

  void RunLink(const sim::Link& link, std::uint64_t seed, const std::string& name, Score& score) {
    sim::SimulatedTrace trace = sim::Simulate(link, seed);
    TTH thresholds(nullptr);
    thresholds.THLoss = options_.ltDb;
    thresholds.THRef = options_.rtDb;
    thresholds.THEnd = options_.etDb;
    const auto analyse = [&trace](TTH& values) { TAuto().AnalysisSorData(trace.record.get(), &values); };
    thresholds.fromAutomat = 1;  // thresholds are taken literally, as by the program
    thresholds.noShortAnalysis = options_.road == "direct" ? 1 : 0;
    if (options_.road == "program") {
      AnalysePlausibly(*trace.record, thresholds, analyse);
    } else {
      analyse(thresholds);
    }
    TraceResult result;
    result.trace = &trace;
    result.found = FoundEvents(*trace.record);
    result.spacingKm = trace.record->FxdParams->LenDS();
    result.pulseKm = link.pulseNs * sim::KmPerNs(link.groupIndex);
    result.matching = Match(trace.truth, result.found, std::max(result.pulseKm, 3.0 * result.spacingKm));
    score.Add(result);
    const long badness = Score::Badness(result);
    if (!options_.keep.empty() && badness > 0) kept_.push_back({badness, name, link, seed});
  }

  void Progress(const char* name, long number) const {
    if (isatty(STDERR_FILENO) == 0) return;
    if (number == 0) {
      std::fprintf(stderr, "\r\033[K");
    } else {
      std::fprintf(stderr, "\r\033[K%s %ld/%ld", name, number, options_.count);
    }
  }

  // Keeps the worst traces to be looked at, each with its link and its truth.
  void KeepWorst() {
    std::stable_sort(kept_.begin(), kept_.end(),
                     [](const Kept& a, const Kept& b) { return a.badness > b.badness; });
    for (size_t i = 0; i < kept_.size() && i < static_cast<size_t>(options_.keepCount); ++i) {
      SaveKept(options_.keep,
               {kept_[i].name, kept_[i].link, kept_[i].seed, options_.ltDb, options_.rtDb, options_.etDb});
      std::fprintf(stderr, "kept %s/%s (%ld wrong)\n", options_.keep.c_str(), kept_[i].name.c_str(),
                   kept_[i].badness);
    }
  }

  Options options_;
  std::vector<Kept> kept_;
};

int Main(int argc, char** argv) {
  Options options;
  CLI::App app("Scores the analysis over random simulated links.");
  app.add_option("-n", options.count, "Links a class")->capture_default_str();
  app.add_option("--seed", options.seed, "Seed of the links and their noise")->capture_default_str();
  app.add_option("--class", options.classes, "Only these classes of links");
  app.add_option("--keep", options.keep, "Folder for the worst traces");
  app.add_option("--keep-count", options.keepCount, "How many of them")->capture_default_str();
  app.add_option("--lt", options.ltDb, "Loss threshold, dB")->capture_default_str();
  app.add_option("--rt", options.rtDb, "Reflectance threshold, dB")->capture_default_str();
  app.add_option("--et", options.etDb, "End threshold, dB")->capture_default_str();
  app.add_option("--road", options.road,
                 "Search: direct, from the events of the automatic filter, or what the program makes of both")
      ->check(CLI::IsMember({"direct", "filter", "program"}))
      ->capture_default_str();
  app.add_flag("--json", options.json, "Print JSON");
  CLI11_PARSE(app, argc, argv);
  return Scorecard(options).Run();
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Main(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "scorecard: " << error.what() << "\n";
    return 1;
  }
}
