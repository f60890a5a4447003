// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace reflyze::sim {

// A description that cannot be a link; the text begins with the field, as in "sections[2].length_km: ...".
class LinkError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct Section {
  double lengthKm = 0.0;
  double attenuationDbPerKm = 0.2;
  double backscatterDb = -81.9;  // backscatter coefficient for a pulse of 1 ns (IEC 61746-1)
};

// Where two sections meet, and at both ends of the link.
struct Joint {
  double lossDb = 0.0;                  // insertion loss, the same both ways; may be 0
  std::optional<double> reflectanceDb;  // none: nothing is reflected
};

struct Receiver {
  double bandwidthMhz = 50.0;  // first-order low pass
  double tailShare = 0.0;      // share of the light that comes through a second, slow path
  double tailNs = 1000.0;      // its time constant
  double saturationDb = 0.0;   // levels above are clipped
  double noiseDb = -50.0;      // root mean square of the noise of one shot, on the 5 log10 scale
  double floorDb = -65.535;    // what the instrument stores for no or negative power
  double rippleDb = 0.0;       // amplitude of the polarisation ripple of the level
  double ripplePeriodKm = 1.0;
  double fadingDb = 0.0;          // root mean square of the coherent fading of the backscatter
  double undershootShare = 0.0;   // of the light that is taken off again through a path of its own
  double undershootNs = 1000.0;   // its time constant
  double noiseCorrelation = 0.0;  // of neighbouring samples
  long smoothingPoints = 1;       // over which the instrument takes means, odd
  double offsetOfNoise = 0.0;     // dark level that is left in all samples, in root mean squares of the noise
};

// A fibre link as an instrument sees it, and the acquisition. Levels are 5 log10 of linear power, 0 at the
// top of the instrument's scale. Distances are arbitrary reals.
struct Link {
  std::string name;
  std::string fibre = "1", from = "A", to = "B";  // names of the fibre and of its ends in the record
  double wavelengthNm = 1550.0;
  double pulseNs = 100.0;
  double groupIndex = 1.468;
  double spacingM = 0.0;  // one of spacing and points follows from the other and the range
  long points = 0;
  double rangeKm = 0.0;
  double leadKm = 0.0;  // recorded before the launch connector
  long averages = 10000;
  long dateUtc = 1767225600;     // s since 1970; fixed, so that one description gives one file
  double launchLevelDb = -20.0;  // backscatter behind the launch connector once the pulse is in the fibre
  double lossThresholdDb = 0.2;  // thresholds stored in the record
  double reflectanceThresholdDb = -60.0;
  double endThresholdDb = 3.0;
  bool storesBackscatter = true;  // the record states the first section's backscatter coefficient
  bool storesNoiseFloor = true;   // and the noise floor; 0 stands for none
  bool ghosts = false;            // echoes that pass between two reflections
  Joint launch;
  std::vector<Section> sections;
  std::vector<Joint> joints;  // between sections
  Joint end;
  Receiver receiver;

  double LengthKm() const;
};

// Reads and checks a description; unknown fields, wrong types and impossible values are a LinkError.
Link LinkFromJson(const nlohmann::json& json);
Link LinkFromText(const std::string& text);
nlohmann::ordered_json JsonOfLink(const Link& link);

}  // namespace reflyze::sim
