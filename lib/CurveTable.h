// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "reflyze/import.h"

namespace reflyze {

// Evenly spaced levels along a fibre.
struct EvenCurve {
  double firstKm = 0.0, spacingKm = 0.0;
  std::vector<double> levelsDb;
};

// Reads the rows of a curve; see ImportCurve. Throws Error kUnreadable, which names the line.
EvenCurve ReadCurve(const std::string& text, const ImportOptions& options, const std::string& source);

}  // namespace reflyze
