#include "cli/Analysis.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "cli/EngineCall.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "cli/Text.h"
#include "measure/Plausible.h"

namespace reflyze::cli {
namespace {

// What takes the place of a threshold of 0 in a trace.
constexpr double kUsualLtDb = 0.2;
constexpr double kUsualRtDb = -60.0;
constexpr double kUsualEtDb = 3.0;
constexpr double kUsualCtDbPerKm = 0.25;

// No fibre loses or reflects more than this, in dB or dB/km; the bounds catch slips, such as a reflectance
// without its sign.
constexpr double kMost = 1000.0;

// A document of thresholds is a page of text; each of its keys is looked up among all others.
constexpr size_t kLargestDocument = 1u << 16;  // bytes

struct KeyLimits {
  const char* key;
  double least, most;
};
constexpr KeyLimits kKeys[] = {{"THLoss", 0.0, kMost},   {"THRef", -kMost, 0.0},    {"THEnd", 0.0, kMost},
                               {"THEndPON", 0.0, kMost}, {"dBkm", 0.0, kMost},      {"Event", -kMost, kMost},
                               {"polar", -kMost, kMost}, {"RefSat", -kMost, kMost}, {"MinPin", -1e9, 1e9}};

double OrUsual(double stored, double usual) { return stored == 0.0 ? usual : stored; }

std::string Trimmed(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t\r");
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

// The document in the strict form: lines that end in CR LF, no blanks around "=", no keys without a value.
std::string StrictDocument(const std::vector<char>& bytes) {
  static const std::string kByteOrderMark = "\xEF\xBB\xBF";
  std::string text(bytes.begin(), bytes.end());
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

void CheckKeys(TIniSection& section, const std::string& place) {
  bool any = false;
  for (const KeyLimits& limits : kKeys) {
    int index = 0;
    TIniKey* key = section.FindKey(limits.key, index);
    if (key == nullptr) continue;
    any = true;
    std::string value = ValueOf(key->GetString(""));
    const std::string wrong = NumberBetween(limits.least, limits.most)(value);
    if (!wrong.empty()) throw Problem(kUnreadable, place + " " + limits.key + ": " + wrong);
  }
  if (!any) throw Problem(kUnreadable, place + " holds no threshold, such as THLoss or THRef");
}

std::unique_ptr<TIniSection> ReadSection(Session& session, const ThresholdOptions& options) {
  const std::vector<char> bytes = ReadInput(session, options.file, kLargestDocument);
  if (std::count(bytes.begin(), bytes.end(), '\0') != 0)
    throw Problem(kUnreadable, options.file + ": is no text");
  TIni document;
  document.FromString(StrictDocument(bytes).c_str());
  int index = 0;
  TIniSection* section = document.FindSection(options.section.c_str(), index);
  const std::string place = options.file + ": section [" + options.section + "]";
  if (section == nullptr) throw Problem(kUnreadable, place + " is not there");
  CheckKeys(*section, place);
  return std::make_unique<TIniSection>(section);
}

}  // namespace

void AddThresholdOptions(CLI::App& command, ThresholdOptions& options) {
  command.add_option("--lt", options.ltDb, "Loss threshold, dB")->transform(NumberBetween(0.0, kMost));
  command.add_option("--rt", options.rtDb, "Reflectance threshold, dB (negative)")
      ->transform(NumberBetween(-kMost, 0.0));
  command.add_option("--et", options.etDb, "End of fibre threshold, dB")
      ->transform(NumberBetween(0.0, kMost));
  command.add_option("--ct", options.ctDbPerKm, "Slope threshold, dB/km")
      ->transform(NumberBetween(0.0, kMost));
  CLI::Option* file =
      command.add_option("--thresholds", options.file, "INI document with thresholds")->check(InputName());
  command.add_option("--section", options.section, "Section of that document")
      ->needs(file)
      ->capture_default_str();
}

ThresholdSource::ThresholdSource(Session& session, const ThresholdOptions& options) : options_(options) {
  if (!options.file.empty()) section_ = ReadSection(session, options);
}

TTH ThresholdSource::For(const TSorData& record) const {
  TTH thresholds(nullptr);
  thresholds.THLoss = OrUsual(record.FxdParams->GetLT(), kUsualLtDb);
  thresholds.THRef = OrUsual(record.FxdParams->GetRT(), kUsualRtDb);
  thresholds.THEnd = OrUsual(record.FxdParams->GetET(), kUsualEtDb);
  thresholds.dBkm = OrUsual(record.QRTParams->GetCT(), kUsualCtDbPerKm);
  if (section_) {
    TIniSection section(section_.get());  // reading adds the keys that it misses
    thresholds.ReadSectionTH(&section);
  }
  if (options_.ltDb) thresholds.THLoss = *options_.ltDb;
  if (options_.mostLtDb) thresholds.THLoss = std::min(thresholds.THLoss, *options_.mostLtDb);
  if (options_.rtDb) thresholds.THRef = *options_.rtDb;
  if (options_.etDb) thresholds.THEnd = *options_.etDb;
  if (options_.ctDbPerKm) thresholds.dBkm = *options_.ctDbPerKm;
  return thresholds;
}

void AnalyseByModule(Session& session, LoadedRecord& loaded, TTH& thresholds, bool endsOnly) {
  CallEngine(loaded.name, "analysed",
             [&] { session.Module().Analyse(*loaded.record, &thresholds, endsOnly); });
}

void Analyse(Session& session, LoadedRecord& loaded, TTH& thresholds, bool endsOnly) {
  CallEngine(loaded.name, "analysed", [&] {
    AnalysePlausibly(*loaded.record, thresholds,
                     [&](TTH& values) { session.Module().Analyse(*loaded.record, &values, false); });
    if (endsOnly) session.Module().Analyse(*loaded.record, &thresholds, true);
  });
}

}  // namespace reflyze::cli
