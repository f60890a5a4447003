#pragma once

#include <optional>
#include <string>
#include <vector>

#include "lib/LoadedRecord.h"
#include "reflyze/events.h"
#include "src/analysis/th.h"

namespace reflyze {

// The actual wavelength in nm. Instruments store it in nm or in tenths of a nm; none stands below 200 nm or
// above 2000 nm, so the size of the number tells. A stored 0 gives the nominal wavelength.
double WavelengthNm(const TSorData& record);
double NoiseFloorDb(const TSorData& record);
// Whether an analysed trace shows a fibre: there is something behind the launch, and not noise alone.
bool ShowsFibre(const TSorData& record);
// Without a coefficient of the fibre's backscatter no reflectance can be told: all is measured against it.
bool KnowsBackscatter(const TSorData& record);

// All listed events, with losses added up.
std::vector<Event> MakeEventRows(const TSorData& record, const TextEncoding& texts, Numbers numbers);

// The table of a record that is measured. `asked` are the thresholds of the analysis; without one, those of
// the record count, where it has them. It has no warnings and keeps no record yet.
EventTable MakeEventTable(const LoadedRecord& loaded, const std::optional<TTH>& asked, Numbers numbers);

}  // namespace reflyze
