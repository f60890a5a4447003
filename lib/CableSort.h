// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <string>
#include <vector>

#include "lib/CableMatch.h"
#include "reflyze/inputs.h"

namespace reflyze {

struct NaturalOrder {
  bool operator()(const std::string& a, const std::string& b) const { return NaturalLess(a, b); }
};

// A fibre at one wavelength: its traces from both ends, as the names have them; null for none.
struct BothEnds {
  const CableTrace *a = nullptr, *b = nullptr;
};
using CableFibres = std::map<std::string, std::map<int, BothEnds>, NaturalOrder>;

// The traces of a job, each with its fibre, wavelength and end.
struct SortedTraces {
  std::string cable;                                         // name of the first, in alphabetical order
  CableFibres fibres;                                        // in natural order
  std::vector<PlacedTrace> placed;                           // those that count
  std::map<std::string, std::vector<std::string>> findings;  // by fibre
  std::vector<std::string> said;                             // of files: what is doubtful or left out

  void Find(const std::string& fibre, const std::string& text);  // adds a finding once
};

// Puts each trace to its fibre by what its name and its record say; those that have no place are said. The
// traces have to stay where they are.
SortedTraces SortTraces(const std::vector<CableTrace>& traces);

}  // namespace reflyze
