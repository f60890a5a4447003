#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "sor/sorData.h"
#include "src/analysis/th.h"

namespace reflyze::cli {

// A record has a number in every place. The launch and the end have a step of the trace for a loss, a splice
// the reflectance that noise leaves to it, a return loss of 0 says that there is none.
enum class Numbers {
  kMeasured,  // of all those only what is one, for readers
  kAsStored,
};

struct EventRow {
  int number = 0;
  int eptOwt = 0;  // one-way time, 100 ps
  double distanceKm = 0.0;
  std::string code;       // SR-4731 event code
  std::string technique;  // of the loss measurement
  std::string type;       // in words
  std::optional<double> lossDb;
  std::optional<double> reflectanceDb;
  bool reflectanceAtLeast = false;           // the receiver was saturated
  std::optional<double> attenuationDbPerKm;  // of the section before the event
  double cumulatedDb = 0.0;                  // sections and events from the launch up to and with this event
  int markersOwt[5] = {};
  std::string comment;
};

// What a listing shows of one analysed trace.
struct EventTable {
  std::string file;
  long points = 0;
  double wavelengthNm = 0.0;
  double pulseNs = 0.0;
  double spacingM = 0.0;
  double rangeKm = 0.0;
  double groupIndex = 0.0;
  std::optional<double> ltDb, rtDb, etDb, ctDbPerKm;  // thresholds that held when the events were found
  double noiseFloorDb = 0.0;
  bool fibre = true;  // the trace shows one
  std::optional<double> lengthKm;
  std::optional<double> totalLossDb;  // end to end, on the trace itself
  std::optional<double> returnLossDb;
  std::vector<std::string> warnings;
  std::vector<EventRow> events;
};

// The actual wavelength in nm. Instruments store it in nm or in tenths of a nm; none stands below 200 nm or
// above 2000 nm, so the size of the number tells. A stored 0 gives the nominal wavelength.
double WavelengthNm(const TSorData& record);
double NoiseFloorDb(const TSorData& record);
// Whether an analysed trace shows a fibre: there is something behind the launch, and not noise alone.
bool ShowsFibre(const TSorData& record);

// All listed events, with losses added up.
std::vector<EventRow> MakeEventRows(const TSorData& record, Numbers numbers);
nlohmann::ordered_json JsonOfRow(const EventRow& row);
// "-" for none; a saturated reflectance is more than the value.
std::string NumberOrDash(std::optional<double> value, int decimals);
std::string ReflectanceText(const EventRow& row);
// "standard input" for "-".
std::string ShownName(const std::string& file);

// Without a coefficient of the fibre's backscatter no reflectance can be told: all is measured against it.
bool KnowsBackscatter(const TSorData& record);

// `asked` are the thresholds of the analysis; without one, those of the record count, where it has them.
EventTable MakeEventTable(const std::string& file, const TSorData& record, const std::optional<TTH>& asked,
                          Numbers numbers);

std::string TextOf(const EventTable& table);
nlohmann::ordered_json JsonObjectOf(const EventTable& table);
std::string JsonOf(const EventTable& table);  // one line
std::string CsvHeader();
std::string CsvOf(const EventTable& table);  // one line an event

}  // namespace reflyze::cli
