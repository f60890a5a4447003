// SPDX-License-Identifier: Apache-2.0

// How well two directions of a link merge, over random links whose truth is known. The merge gets the tables
// that the analysis finds, and tables of the truth, which show what the merge itself does wrong.

#include <CLI/CLI.hpp>
#include <iostream>

#include "measure/Plausible.h"
#include "score/MergeScore.h"
#include "src/analysis/th.h"
#include "src/module/Auto.h"

namespace {

using namespace reflyze;
using namespace reflyze::score;

struct Options {
  long count = 20;  // pairs a class
  std::uint64_t seed = 1;
  std::vector<std::string> classes = {"access", "metro", "long-haul", "noisy", "close", "broken"};
  std::string tables = "analysed";
  double ltDb = 0.03;
  double rtDb = -72.0;
  double etDb = 3.0;
};

// The share of joints that one direction or the other has overlooked.
constexpr double kOverlookedShare = 0.33;

class Program {
 public:
  explicit Program(const Options& options) : options_(options) {}

  void Run() {
    MergeScore believed, doubted;
    for (const LinkClass linkClass : AllLinkClasses()) {
      const auto& wanted = options_.classes;
      if (std::find(wanted.begin(), wanted.end(), NameOf(linkClass)) == wanted.end()) continue;
      MergeScore at1310, others;
      Random random(options_.seed * 1000003 + static_cast<std::uint64_t>(linkClass));
      for (long i = 0; i < options_.count; ++i) {
        const sim::Link link = RandomLinkOfThreeWavelengths(linkClass, random);
        const std::uint64_t seed = random.Bits();
        TwoWays ways = MeasureBothWays(link, seed);
        Random edits(seed);  // the links stay the same for every kind of table
        List(ways, edits);
        (link.wavelengthNm == 1310.0 ? at1310 : others).Add(ways);
      }
      std::cout << others.Text(std::string(NameOf(linkClass)) + ", 1550/1625 nm")
                << at1310.Text(std::string(NameOf(linkClass)) + ", 1310 nm") << std::flush;
      believed.AddAll(others);
      doubted.AddAll(at1310);
    }
    std::cout << "\n" << believed.Text("all, 1550/1625 nm") << doubted.Text("all, 1310 nm");
  }

 private:
  void List(TwoWays& ways, Random& random) const {
    if (options_.tables == "analysed") {
      Analyse(*ways.a.record);
      Analyse(*ways.b.record);
      return;
    }
    std::vector<bool> leaveOutA, leaveOutB;
    for (size_t i = 0; i < ways.a.truth.events.size(); ++i) {
      const bool overlooked = options_.tables == "overlooked" && random.Chance(kOverlookedShare);
      const bool byA = random.Chance(0.5);
      leaveOutA.push_back(overlooked && byA);
      leaveOutB.insert(leaveOutB.begin(), overlooked && !byA);
    }
    ListTruth(ways.a, ways.link, leaveOutA);
    ListTruth(ways.b, ways.link, leaveOutB);
    if (options_.tables != "moved") return;
    MovePlaces(*ways.a.record, random);
    MovePlaces(*ways.b.record, random);
  }

  void Analyse(TSorData& record) const {
    TTH thresholds(nullptr);
    thresholds.THLoss = options_.ltDb;
    thresholds.THRef = options_.rtDb;
    thresholds.THEnd = options_.etDb;
    AnalysePlausibly(record, thresholds,
                     [&record](TTH& values) { TAuto().AnalysisSorData(&record, &values); });
  }

  Options options_;
};

int Main(int argc, char** argv) {
  Options options;
  CLI::App app("Scores the merge of two directions over random simulated links.");
  app.add_option("-n", options.count, "Links a class")->capture_default_str();
  app.add_option("--seed", options.seed, "Seed of the links and their noise")->capture_default_str();
  app.add_option("--class", options.classes, "Only these classes of links")->capture_default_str();
  app.add_option("--tables", options.tables,
                 "What is merged: analysed tables, or true ones, as they are, with joints overlooked by one "
                 "direction, or with places moved as far as they are trusted")
      ->check(CLI::IsMember({"analysed", "true", "overlooked", "moved"}))
      ->capture_default_str();
  app.add_option("--lt", options.ltDb, "Loss threshold, dB")->capture_default_str();
  app.add_option("--rt", options.rtDb, "Reflectance threshold, dB")->capture_default_str();
  app.add_option("--et", options.etDb, "End threshold, dB")->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  Program(options).Run();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Main(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "merge_scorecard: " << error.what() << "\n";
    return 1;
  }
}
