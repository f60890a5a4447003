// SPDX-License-Identifier: Apache-2.0

// How well a comparison tells what happened to a fibre: draws links, lets something happen to each, simulates
// both traces, makes a baseline of the first and compares. One line for each kind of happening.

#include <sys/stat.h>
#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>

#include "lib/Baseline.h"
#include "lib/LoadedRecord.h"
#include "lib/Text.h"
#include "measure/Plausible.h"
#include "score/TracePairs.h"
#include "sim/Simulate.h"
#include "sim/Waveform.h"
#include "sor/stream/sorFile.h"
#include "src/analysis/th.h"
#include "src/module/Auto.h"

namespace {

using namespace reflyze;
using namespace reflyze::score;

struct Options {
  long count = 200;
  std::uint64_t seed = 1;
  std::vector<std::string> happenings;
  std::vector<std::string> classes = {kMonitored};
  PairOptions pairs;
  double baselineLtDb = 0.05;  // of the baseline's analysis
  double baselineRtDb = -72.0;
  Monitoring monitoring;
  std::string keep;
  bool verbose = false;
};

// What came of one pair.
struct Verdict {
  bool code = false;   // the result code is right
  bool flags = false;  // the right event is flagged
  bool place = false;  // at the right place
  bool alone = false;  // and nothing else is flagged
  bool Right() const { return code && flags && place; }
};

bool Alarmed(const ComparedEvent& row) {
  return row.isNew || row.fiberBreak || row.loss.exceeded || row.reflectance.exceeded ||
         row.attenuation.exceeded;
}

// How far from its true place an event may be reported.
double ToleranceKm(const TracePair& pair) {
  const double pulseKm = pair.current.pulseNs * sim::KmPerNs(pair.current.groupIndex);
  return std::max(2.0 * pulseKm, 5.0 * pair.current.spacingM / 1000.0);
}

bool Lists(const TSorData& baseline, const TracePair& pair) {
  for (int i = 1; i + 1 < baseline.KeyEvents->ListedEvents(); ++i) {
    const double km = baseline.OwtToLen(baseline.KeyEvents->EventAt(i).EPT);
    if (std::fabs(km - pair.placeKm) <= ToleranceKm(pair)) return true;
  }
  return false;
}

// A record as the program would store and read it.
Trace ThroughFile(TSorData& record) {
  TSorFile memory(nullptr, "m");
  record.Write(&memory);
  const char* bytes = memory.GetData();
  return Trace::FromBytes("trace", {bytes, bytes + memory.GetDataSize()});
}

// Judges a comparison by what really happened.
class Judge {
 public:
  Judge(Happening happening, const TracePair& pair, const Comparison& table)
      : happening_(happening), pair_(pair), table_(table) {}

  Verdict Judged() const {
    switch (happening_) {
      case Happening::kNothing:
      case Happening::kOtherAcquisition:
      case Happening::kOtherGroupIndex: {
        const bool quiet = !table_.fail && Flagged() == 0;
        return {table_.result == mrCompared, quiet, true, quiet};
      }
      case Happening::kMoreLoss:
        return Single([](const ComparedEvent& row) { return row.loss.exceeded && row.fail; });
      case Happening::kWorseReflectance:
        return Single([](const ComparedEvent& row) { return row.reflectance.exceeded && row.fail; });
      case Happening::kNewSplice:
        return Single([](const ComparedEvent& row) { return row.isNew; });
      case Happening::kNewReflection:
        return Single(
            [](const ComparedEvent& row) { return row.isNew && row.event.reflectanceDb.has_value(); });
      case Happening::kDeadFibre:
      case Happening::kOtherFibre:
        return {table_.result == mrNoLink, true, true, true};
      case Happening::kOtherFibreSameLevel:
        return {true, table_.Changed(), true, true};
      default: {
        Verdict verdict = Single([](const ComparedEvent& row) { return row.fiberBreak; });
        verdict.code = table_.result == mrFibreBreak;
        return verdict;
      }
    }
  }

 private:
  long Flagged() const {
    return std::count_if(table_.rows.begin(), table_.rows.end(),
                         [](const auto& row) { return Alarmed(row); });
  }
  template <class IsIt>
  Verdict Single(IsIt isIt) const {
    Verdict verdict;
    verdict.code = table_.result == mrCompared;
    for (const ComparedEvent& row : table_.rows) {
      if (!isIt(row)) continue;
      verdict.flags = table_.fail;
      if (std::fabs(row.event.distanceKm - pair_.placeKm) <= ToleranceKm(pair_)) verdict.place = true;
    }
    verdict.alone = verdict.place && Flagged() == 1;
    return verdict;
  }

  Happening happening_;
  const TracePair& pair_;
  const Comparison& table_;
};

class Program {
 public:
  explicit Program(const Options& options) : options_(options) {}

  void Run() {
    std::printf("%-20s %6s %7s %7s %7s %7s %7s\n", "", "pairs", "right", "code", "flags", "place", "alone");
    for (const Happening happening : AllHappenings()) {
      const auto& wanted = options_.happenings;
      if (wanted.empty() || std::find(wanted.begin(), wanted.end(), NameOf(happening)) != wanted.end())
        RunHappening(happening);
    }
  }

 private:
  struct Tally {
    long pairs = 0, right = 0, code = 0, flags = 0, place = 0, alone = 0;
    void Add(const Verdict& v) {
      ++pairs;
      right += v.Right();
      code += v.code;
      flags += v.flags;
      place += v.place;
      alone += v.alone;
    }
    void Print(const std::string& name) const {
      const auto percent = [&](long n) {
        return 100.0 * static_cast<double>(n) / static_cast<double>(pairs);
      };
      std::printf("%-20s %6ld %6.1f%% %6.1f%% %6.1f%% %6.1f%% %6.1f%%\n", name.c_str(), pairs, percent(right),
                  percent(code), percent(flags), percent(place), percent(alone));
      std::fflush(stdout);
    }
  };

  void RunHappening(Happening happening) {
    Random random(options_.seed * 1000003 + static_cast<std::uint64_t>(happening));
    Tally all;
    std::map<std::string, Tally> classes;
    constexpr long kMostTries = 50;  // per pair, since not every link has room for every change
    for (long tries = 0; all.pairs < options_.count && tries < kMostTries * options_.count; ++tries) {
      const auto number = static_cast<size_t>(all.pairs) % options_.classes.size();
      const std::string& links = options_.classes[number];
      const std::optional<TracePair> pair = DrawPair(happening, links, options_.pairs, random);
      const std::uint64_t seed = random.Bits();
      if (!pair) continue;
      const std::optional<Verdict> verdict =
          RunPair(happening, *pair, seed,
                  std::string(NameOf(happening)) + "-" + std::to_string(all.pairs) + "-" + links);
      if (!verdict) continue;
      all.Add(*verdict);
      classes[links].Add(*verdict);
    }
    all.Print(NameOf(happening));
    if (options_.verbose && classes.size() > 1)
      for (const auto& [name, tally] : classes) tally.Print("  " + name);
  }

  // The pair is passed over where the baseline does not list the joint that was changed.
  std::optional<Verdict> RunPair(Happening happening, const TracePair& pair, std::uint64_t seed,
                                 const std::string& name) const {
    const sim::SimulatedTrace before = sim::Simulate(pair.baseline, seed);
    const sim::SimulatedTrace after = sim::Simulate(pair.current, seed + 1);
    TTH thresholds(nullptr);
    thresholds.THLoss = options_.baselineLtDb;
    thresholds.THRef = options_.baselineRtDb;
    thresholds.THEnd = pair.baseline.endThresholdDb;
    AnalysePlausibly(*before.record, thresholds,
                     [&](TTH& values) { TAuto().AnalysisSorData(before.record.get(), &values); });
    MakeBaselineOf(*before.record, options_.monitoring);
    if (IsAtJoint(happening) && !Lists(*before.record, pair)) return std::nullopt;
    const Comparison table = Compare(ThroughFile(*before.record), ThroughFile(*after.record));
    const Verdict verdict = Judge(happening, pair, table).Judged();
    if (!verdict.Right()) Tell(name, pair, seed, table);
    return verdict;
  }

  // Keeps a miss to be looked at: what was said, and the files to have the program say it again.
  void Tell(const std::string& name, const TracePair& pair, std::uint64_t seed,
            const Comparison& table) const {
    if (options_.verbose) {
      std::printf("  %s, pulse %.0f ns: at %.3f of %.3f km by %.2f dB\n", name.c_str(), pair.current.pulseNs,
                  pair.placeKm, pair.baseline.LengthKm(), pair.changeDb);
      for (const std::string& change : ChangesOf(table)) std::printf("      %s\n", change.c_str());
    }
    if (options_.keep.empty()) return;
    mkdir(options_.keep.c_str(), 0777);
    const std::string base = options_.keep + "/" + name;
    const auto save = [&](const sim::Link& link, std::uint64_t linkSeed, const char* ending) {
      sim::SimulatedTrace trace = sim::Simulate(link, linkSeed);
      trace.record->FxdParams->SetLT(options_.baselineLtDb);
      trace.record->FxdParams->SetRT(options_.baselineRtDb);
      SaveTogether({{base + ending + ".sor", RecordBytes(*trace.record, base + ending)}});
      SaveTogether({{base + ending + ".json", sim::JsonOfLink(link).dump(1) + "\n"}});
    };
    save(pair.baseline, seed, ".baseline");
    save(pair.current, seed + 1, ".current");
  }

  Options options_;
};

int Main(int argc, char** argv) {
  Options options;
  options.monitoring.level = "bench";
  std::vector<std::string> settings;
  CLI::App app("Scores comparisons with a baseline over pairs of simulated traces.");
  app.add_option("-n", options.count, "Pairs a kind")->capture_default_str();
  app.add_option("--seed", options.seed, "Seed of the links and their noise")->capture_default_str();
  app.add_option("--kind", options.happenings, "Only these kinds");
  app.add_option("--class", options.classes, "Classes of links, by turns")->capture_default_str();
  app.add_option("--margin", options.pairs.marginDb, "Far end above the noise, dB")->capture_default_str();
  app.add_option("--lead", options.pairs.mostLeadKm, "Traces begin up to so many km before the launch")
      ->capture_default_str();
  app.add_option("--baseline-lt", options.baselineLtDb, "Loss threshold of the baseline's analysis, dB")
      ->capture_default_str();
  app.add_option("--baseline-rt", options.baselineRtDb, "Reflectance threshold of that analysis, dB")
      ->capture_default_str();
  app.add_option("--lt", options.monitoring.ltDb, "Limit of loss, dB")->capture_default_str();
  app.add_option("--rt", options.monitoring.rtDb, "Limit of reflectance, dB")->capture_default_str();
  app.add_option("--ct", options.monitoring.ctDbPerKm, "Limit of attenuation, dB/km")->capture_default_str();
  app.add_option("--set", settings, "Setting of the baseline, NAME=VALUE");
  app.add_option("--keep", options.keep, "Folder for the pairs that came out wrong");
  app.add_flag("-v", options.verbose, "Tell of each pair that came out wrong, and of each class");
  CLI11_PARSE(app, argc, argv);
  for (const std::string& setting : settings) {
    const size_t equals = setting.find('=');
    options.monitoring.settings.emplace_back(setting.substr(0, equals),
                                             std::strtod(setting.c_str() + equals + 1, nullptr));
  }
  Program(options).Run();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Main(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "pairs: " << error.what() << "\n";
    return 1;
  }
}
