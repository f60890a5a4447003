// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "lib/LoadedRecord.h"
#include "reflyze/events.h"
#include "src/analysis/th.h"

namespace reflyze {

constexpr std::size_t kMostTableEvents =
    std::numeric_limits<short>::max();  // a record counts them in 16 bits

// The actual wavelength in nm. Instruments store it in nm or in tenths of a nm. Wavelengths lie between 200
// nm and 2000 nm, so the size of the number tells which. A stored 0 gives the nominal wavelength.
double WavelengthNm(const TSorData& record);
double NoiseFloorDb(const TSorData& record);
// Whether an analysed trace shows a fibre: there is something behind the launch, and not noise alone.
bool ShowsFibre(const TSorData& record);
// Whether reflectances can be told: they are measured against the fibre's backscatter coefficient, which the
// record must state.
bool KnowsBackscatter(const TSorData& record);

// All listed events, with their losses added up.
std::vector<Event> MakeEventRows(const TSorData& record, const TextEncoding& texts, Numbers numbers);

// The table of a record that is to be measured. `asked` are the thresholds of the analysis. Where there was
// none, those of the record count, if it has them. `showsFibre` is what is known of that; if nothing is, the
// levels tell. The table has no warnings and keeps no record yet.
EventTable MakeEventTable(const LoadedRecord& loaded, const std::optional<TTH>& asked, Numbers numbers,
                          std::optional<bool> showsFibre = std::nullopt);

}  // namespace reflyze
