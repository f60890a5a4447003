// SPDX-License-Identifier: Apache-2.0
#include "lib/CableSort.h"

#include <algorithm>
#include <cstdlib>
#include <set>

#include "lib/Text.h"
#include "reflyze/text.h"

namespace reflyze {
namespace {

std::string Shown(const CableTrace& trace) { return ShownName(trace.file); }

class Sorter {
 public:
  explicit Sorter(const std::vector<CableTrace>& traces) : traces_(traces) {}

  SortedTraces Sorted() {
    std::set<std::string> recordFibres;
    for (const CableTrace& trace : traces_) recordFibres.insert(trace.recordFibre);
    TellCables();
    for (const CableTrace& trace : traces_) {
      if (!HasPlace(trace)) continue;
      Doubt(trace, recordFibres.size() > 1);
      Place(trace);
    }
    return std::move(sorted_);
  }

 private:
  void Say(const std::string& text) { sorted_.said.push_back(OneLine(text)); }

  void TellCables() {
    std::set<std::string> cables;
    for (const CableTrace& trace : traces_) {
      if (!trace.cable.empty()) cables.insert(trace.cable);
    }
    if (!cables.empty()) sorted_.cable = *cables.begin();
    for (const std::string& cable : cables) {
      if (cable != sorted_.cable)
        Say("there are traces of cable \"" + sorted_.cable + "\" and of \"" + cable + "\"");
    }
  }

  bool HasPlace(const CableTrace& trace) {
    if (!trace.problem.empty()) {
      Say(trace.problem);
      if (!trace.fibre.empty())
        sorted_.fibres[trace.fibre], sorted_.Find(trace.fibre, "not readable: " + Shown(trace));
      return false;
    }
    if (trace.fibre.empty()) {
      Say(Shown(trace) + ": neither its name nor its record tells its fibre; left out");
      return false;
    }
    const auto [first, fresh] = seen_.emplace(trace.samples, &trace);
    if (fresh) return true;
    const std::string text = Shown(trace) + " is the same trace as " + Shown(*first->second);
    Say(text);
    // A copy whose name says nothing of its own takes the place of no other trace.
    if (trace.direction.empty() && trace.fibre == trace.recordFibre) return false;
    sorted_.fibres[trace.fibre];
    sorted_.Find(trace.fibre, text);
    return false;
  }

  // Records of instruments that nobody has told a fibre all have the same.
  void Doubt(const CableTrace& trace, bool recordsDiffer) {
    const std::string& own = trace.recordFibre;
    const bool same = !NaturalLess(own, trace.fibre) && !NaturalLess(trace.fibre, own);
    const auto number = [](const std::string& text) { return std::atol(text.c_str()); };
    if (recordsDiffer && !own.empty() && !same && number(own) != number(trace.fibre))
      Say(Shown(trace) + ": its name says fibre " + trace.fibre + ", its record \"" + own + "\"");
    if (std::abs(trace.wavelengthNm - trace.recordNm) > 30)
      Say(Shown(trace) +
          Format(": its name says %d nm, its record %d nm", trace.wavelengthNm, trace.recordNm));
  }

  void Place(const CableTrace& trace) {
    BothEnds& pair = sorted_.fibres[trace.fibre][trace.wavelengthNm];
    // Without a word about the direction a trace takes the free one; that of the first is A.
    const bool toB = trace.direction == "B" || (trace.direction.empty() && pair.a != nullptr);
    const CableTrace*& place = toB ? pair.b : pair.a;
    if (place != nullptr) {
      // Of two measurements of one thing the later counts.
      const CableTrace* older = trace.dateUtc > place->dateUtc ? place : &trace;
      Say(Shown(*older) + ": fibre " + trace.fibre + " has a later trace of this wavelength and direction, " +
          Shown(older == place ? trace : *place) + "; left out");
      if (older == &trace) return;
      std::vector<PlacedTrace>& placed = sorted_.placed;
      placed.erase(std::find_if(placed.begin(), placed.end(),
                                [&](const PlacedTrace& other) { return other.trace == place; }));
    } else if (trace.direction.empty() && toB) {
      Say(Shown(trace) + ": nothing tells its direction; taken for the other one of " + Shown(*pair.a));
    }
    place = &trace;
    sorted_.placed.push_back({&trace, toB});
  }

  const std::vector<CableTrace>& traces_;
  std::map<std::uint64_t, const CableTrace*> seen_;  // by their samples
  SortedTraces sorted_;
};

}  // namespace

void SortedTraces::Find(const std::string& fibre, const std::string& text) {
  std::vector<std::string>& of = findings[fibre];
  if (std::find(of.begin(), of.end(), text) == of.end()) of.push_back(text);
}

SortedTraces SortTraces(const std::vector<CableTrace>& traces) { return Sorter(traces).Sorted(); }

DirectionPairs PairDirections(const std::vector<CableTrace>& traces) {
  std::map<std::string, std::vector<CableTrace>, NaturalOrder> cables;
  for (const CableTrace& trace : traces) {
    if (trace.problem.empty()) cables[trace.cable].push_back(trace);
  }
  DirectionPairs pairs;
  for (const auto& [cable, own] : cables) {
    const SortedTraces sorted = SortTraces(own);
    pairs.findings.insert(pairs.findings.end(), sorted.said.begin(), sorted.said.end());
    for (const auto& [fibre, wavelengths] : sorted.fibres) {
      for (const auto& [nm, both] : wavelengths) {
        const auto file = [](const CableTrace* trace) { return trace == nullptr ? "" : trace->file; };
        pairs.pairs.push_back({cable, fibre, nm, file(both.a), file(both.b)});
      }
    }
  }
  return pairs;
}

}  // namespace reflyze
