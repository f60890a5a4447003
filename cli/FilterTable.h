#pragma once

#include <optional>
#include <string>
#include <vector>

#include "sor/sorData.h"
#include "src/filter/Filter.h"

namespace reflyze::cli {

// The filters that can be asked for, by the number under which the engine knows them.
enum class FilterKind { kKernel = 1, kFast = 5, kAuto = 7 };
const char* NameOf(FilterKind kind);

constexpr long kMostFilterEvents = 100;  // that the automatic filter reports

// A point of the trace, as a listing shows it.
struct FilterPoint {
  double distanceKm = 0.0;  // from the user's zero
  double levelDb = 0.0;     // of the smoothed trace
};

struct FilterEventRow {
  TFEvent event;
  FilterPoint begin, peak, end;
};

// What a filter did to a trace and found on the way.
struct FilterTable {
  std::string file;
  FilterKind kind = FilterKind::kAuto;
  double filterLevel = 0.0;
  long points = 0;
  double spacingM = 0.0;
  long kernelPoints = 0;       // of the kernel that the record carries, 0 for none
  AutoFilterResultData found;  // without the arrays of the caller
  std::vector<FilterEventRow> events;

  // Noise in dB, where it was measured.
  std::optional<double> NoiseLowDb() const;
  std::optional<double> NoiseHighDb() const;
};

// `record` is the trace as the filter has left it, `found` what the filter reported, with room for
// kMostFilterEvents in its array, or none.
FilterTable MakeFilterTable(const std::string& file, FilterKind kind, const TSorData& record,
                            const AutoFilterResultData& found);

std::string TextOf(const FilterTable& table);
std::string JsonOf(const FilterTable& table);  // one line; a noise that was not measured is null

}  // namespace reflyze::cli
