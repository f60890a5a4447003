// SPDX-License-Identifier: Apache-2.0
#pragma once

class TSorData;

namespace reflyze {

// The backscatter coefficient of a fibre, for a pulse of 1 ns: how much less light comes back from the fibre
// than a mirror at the same place would send. A record states one for the whole link, and it differs from
// fibre to fibre; one that states none is taken to be of the usual fibre at its wavelength.
struct Backscatter {
  double db = 0.0, deviationDb = 0.0;
  bool assumed = false;
};
Backscatter BackscatterOf(const TSorData& record);

}  // namespace reflyze
