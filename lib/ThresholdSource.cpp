// SPDX-License-Identifier: Apache-2.0
#include "lib/ThresholdSource.h"

#include <algorithm>

#include "lib/LoadedRecord.h"
#include "lib/Text.h"

namespace reflyze {
namespace {

// What takes the place of a threshold of 0 in a trace.
constexpr double kUsualLtDb = 0.2;
constexpr double kUsualRtDb = -60.0;
constexpr double kUsualEtDb = 3.0;
constexpr double kUsualCtDbPerKm = 0.25;

constexpr double kMost = kLargestThreshold;

struct KeyLimits {
  const char* key;
  double least, most;
};
constexpr KeyLimits kThresholdKeys[] = {
    {"THLoss", 0.0, kMost},   {"THRef", -kMost, 0.0},    {"THEnd", 0.0, kMost},
    {"THEndPON", 0.0, kMost}, {"dBkm", 0.0, kMost},      {"Event", -kMost, kMost},
    {"polar", -kMost, kMost}, {"RefSat", -kMost, kMost}, {"MinPin", -1e9, 1e9}};

double OrUsual(double stored, double usual) { return stored == 0.0 ? usual : stored; }

// The document in the strict form that is read here: lines end in CR LF, no blanks stand around "=", and no
// key lacks its value.
std::string StrictDocument(std::string text) {
  static const std::string kByteOrderMark = "\xEF\xBB\xBF";
  if (text.rfind(kByteOrderMark, 0) == 0) text.erase(0, kByteOrderMark.size());
  std::string strict;
  for (size_t from = 0; from < text.size();) {
    const size_t to = std::min(text.find('\n', from), text.size());
    std::string line = Trimmed(text.substr(from, to - from));
    from = to + 1;
    const size_t equals = line.find('=');
    if (equals != std::string::npos && line[0] != '[') {
      const std::string value = Trimmed(line.substr(equals + 1));
      if (value.empty()) continue;
      line = Trimmed(line.substr(0, equals)) + "=" + value;
    }
    if (!line.empty()) strict += line + "\r\n";
  }
  return strict;
}

// A number, or a number with a comment behind it.
std::string ValueOf(const char* text) {
  const std::string value = text;
  return Trimmed(value.substr(0, value.find_first_of(";#")));
}

void CheckKeys(TIniSection& section, const std::string& name, const std::string& place) {
  bool any = false;
  for (const KeyLimits& limits : kThresholdKeys) {
    int index = 0;
    TIniKey* key = section.FindKey(limits.key, index);
    if (key == nullptr) continue;
    any = true;
    const std::string wrong = WhyNoNumber(ValueOf(key->GetString("")), limits.least, limits.most);
    if (!wrong.empty()) throw Error(ErrorKind::kUnreadable, name, place + " " + limits.key + ": " + wrong);
  }
  if (!any) throw Error(ErrorKind::kUnreadable, name, place + " holds no threshold, such as THLoss or THRef");
}

void RequireBetween(const char* what, std::optional<double> value, double least, double most) {
  if (!value || (*value >= least && *value <= most)) return;
  throw Error(ErrorKind::kUsage, "",
              Format("the threshold of %s, %g, is not between %g and %g", what, *value, least, most));
}

void CheckThresholds(const AnalyseOptions& options) {
  const Thresholds& asked = options.thresholds;
  RequireBetween("loss", asked.lossDb, 0.0, kMost);
  RequireBetween("loss", options.mostLossDb, 0.0, kMost);
  RequireBetween("reflectance", asked.reflectanceDb, -kMost, 0.0);
  RequireBetween("the end", asked.endDb, 0.0, kMost);
  RequireBetween("slope", asked.slopeDbPerKm, 0.0, kMost);
}

}  // namespace

ThresholdDocument ThresholdDocument::FromText(const std::string& name, const std::string& text,
                                              const std::string& section) {
  if (text.find('\0') != std::string::npos) throw Error(ErrorKind::kUnreadable, name, "is no text");
  TIni ini;
  ini.FromString(StrictDocument(text).c_str());
  int index = 0;
  TIniSection* found = ini.FindSection(section.c_str(), index);
  const std::string place = "section [" + section + "]";
  if (found == nullptr) throw Error(ErrorKind::kUnreadable, name, place + " is not there");
  CheckKeys(*found, name, place);
  ThresholdDocument document;
  document.section_ = std::make_shared<Section>(found);
  return document;
}

ThresholdDocument ThresholdDocument::FromFile(const std::string& file, const std::string& section) {
  const std::vector<char> bytes = ReadFile(file, kLargestThresholdDocument);
  return FromText(file, {bytes.begin(), bytes.end()}, section);
}

TTH ThresholdsFor(const TSorData& record, const AnalyseOptions& options) {
  CheckThresholds(options);
  TTH thresholds(nullptr);
  thresholds.THLoss = OrUsual(record.FxdParams->GetLT(), kUsualLtDb);
  thresholds.THRef = OrUsual(record.FxdParams->GetRT(), kUsualRtDb);
  thresholds.THEnd = OrUsual(record.FxdParams->GetET(), kUsualEtDb);
  thresholds.dBkm = OrUsual(record.QRTParams->GetCT(), kUsualCtDbPerKm);
  if (const ThresholdDocument::Section* document = options.document.section()) {
    TIniSection section(&document->keys);  // a copy, because reading adds the keys that it misses
    thresholds.ReadSectionTH(&section);
  }
  const Thresholds& asked = options.thresholds;
  if (asked.lossDb) thresholds.THLoss = *asked.lossDb;
  if (options.mostLossDb) thresholds.THLoss = std::min(thresholds.THLoss, *options.mostLossDb);
  if (asked.reflectanceDb) thresholds.THRef = *asked.reflectanceDb;
  if (asked.endDb) thresholds.THEnd = *asked.endDb;
  if (asked.slopeDbPerKm) thresholds.dBkm = *asked.slopeDbPerKm;
  return thresholds;
}

}  // namespace reflyze
