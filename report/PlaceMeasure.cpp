// SPDX-License-Identifier: Apache-2.0

// What was measured between markers.

#include "lib/Text.h"
#include "reflyze/report.h"
#include "report/JsonText.h"
#include "report/Words.h"

namespace reflyze {
namespace {

std::string Figure(std::optional<double> value, std::optional<double> sd, int decimals, const char* unit,
                   const char* bound = "") {
  if (!value) return "-";
  return bound + NumberOrDash(value, decimals) + " " + SdText(sd, decimals) + " " + unit;
}

std::string PlacesText(const PlaceMeasure& measure) {
  const char* const before[] = {"", " to ", " and ", " to "};
  std::string text;
  for (size_t i = 0; i < measure.placesKm.size(); ++i)
    text += before[i] + Format("%.4f", NoMinusZero(measure.placesKm[i], 4));
  text += " km";
  if (measure.placesKm.size() == 2)
    text += Format(", %.4f km long", measure.placesKm[1] - measure.placesKm[0]);
  return text;
}

}  // namespace

std::string TextOf(const PlaceMeasure& measure) {
  std::string text;
  const auto line = [&text](const char* name, const std::string& value) {
    text += PaddedRight(name, 13) + value + "\n";
  };
  line("File", ShownName(measure.file));
  line(measure.placesKm.size() == 1 ? "At" : "From", PlacesText(measure));
  switch (measure.kind) {
    case MeasureKind::kAt:
      line("Level", Figure(measure.levelDb, measure.levelSdDb, 3, "dB"));
      line("Reflectance", Figure(measure.reflectanceDb, measure.reflectanceSdDb, 2, "dB",
                                 measure.reflectanceAtLeast ? ">" : ""));
      break;
    case MeasureKind::kReturnLoss:
      line("Return loss", Figure(measure.returnLossDb, measure.returnLossSdDb, 2, "dB",
                                 measure.returnLossAtMost ? "<" : ""));
      break;
    case MeasureKind::kTwoPoint:
    case MeasureKind::kLeastSquares:
      line("Attenuation", Figure(measure.attenuationDbPerKm, measure.attenuationSdDbPerKm, 4, "dB/km"));
      [[fallthrough]];
    case MeasureKind::kEvent:
      line("Loss", Figure(measure.lossDb, measure.lossSdDb, 3, "dB"));
      break;
  }
  return text;
}

std::string JsonOf(const PlaceMeasure& measure) {
  nlohmann::ordered_json json = {{"file", measure.file}, {"kind", NameOf(measure.kind)}};
  json["places_km"] = measure.placesKm;
  json["level_db"] = NumberOrNull(measure.levelDb);
  json["level_sd_db"] = NumberOrNull(measure.levelSdDb);
  json["loss_db"] = NumberOrNull(measure.lossDb);
  json["loss_sd_db"] = NumberOrNull(measure.lossSdDb);
  json["attenuation_db_per_km"] = NumberOrNull(measure.attenuationDbPerKm);
  json["attenuation_sd_db_per_km"] = NumberOrNull(measure.attenuationSdDbPerKm);
  json["orl_db"] = NumberOrNull(measure.returnLossDb);
  json["orl_sd_db"] = NumberOrNull(measure.returnLossSdDb);
  json["orl_at_most"] = measure.returnLossAtMost;
  json["reflectance_db"] = NumberOrNull(measure.reflectanceDb);
  json["reflectance_sd_db"] = NumberOrNull(measure.reflectanceSdDb);
  json["reflectance_at_least"] = measure.reflectanceAtLeast;
  json["warnings"] = nlohmann::ordered_json::array();
  for (const Warning& warning : measure.warnings) json["warnings"].push_back(warning.text);
  return JsonText(json) + "\n";
}

}  // namespace reflyze
