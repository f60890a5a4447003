#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "sor/sorData.h"
#include "src/th.h"

namespace reflyze::cli {

struct EventRow {
  int number = 0;
  int eptOwt = 0;  // one-way time, 100 ps
  double distanceKm = 0.0;
  std::string code;       // SR-4731 event code
  std::string technique;  // of the loss measurement
  std::string type;       // in words
  double lossDb = 0.0;
  std::optional<double> reflectanceDb;
  double attenuationDbPerKm = 0.0;  // of the section before the event
  double cumulatedDb = 0.0;         // sections and events from the launch up to and with this event
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
  double ltDb = 0.0, rtDb = 0.0, etDb = 0.0, ctDbPerKm = 0.0;  // thresholds of the analysis
  double noiseFloorDb = 0.0;
  double lengthKm = 0.0;
  double totalLossDb = 0.0;
  double returnLossDb = 0.0;
  std::vector<EventRow> events;
};

// The actual wavelength in nm. Instruments store it in nm or in tenths of a nm; none stands below 200 nm or
// above 2000 nm, so the size of the number tells. A stored 0 gives the nominal wavelength.
double WavelengthNm(const TSorData& record);

EventRow MakeEventRow(const TSorData& record, int index);
nlohmann::ordered_json JsonOfRow(const EventRow& row);
// Whether an event reflects. The reflectance of a splice is what noise lets it be; it is stored, but means
// nothing to a reader.
bool Reflects(const EventRow& row);
// A position that rounds to 0 has no sign.
double NoMinusZero(double km);

EventTable MakeEventTable(const std::string& file, const TSorData& record, const TTH& thresholds);

std::string TextOf(const EventTable& table);
nlohmann::ordered_json JsonObjectOf(const EventTable& table);
std::string JsonOf(const EventTable& table);  // one line
std::string CsvHeader();
std::string CsvOf(const EventTable& table);  // one line an event

}  // namespace reflyze::cli
