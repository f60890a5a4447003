#include "cli/Analysis.h"

#include <CLI/CLI.hpp>

#include "cli/EngineCall.h"
#include "cli/Session.h"

namespace reflyze::cli {
namespace {

// What takes the place of a threshold of 0 in a trace.
constexpr double kUsualLtDb = 0.2;
constexpr double kUsualRtDb = -60.0;
constexpr double kUsualEtDb = 3.0;
constexpr double kUsualCtDbPerKm = 0.25;

double OrUsual(double stored, double usual) { return stored == 0.0 ? usual : stored; }

}  // namespace

void AddThresholdOptions(CLI::App& command, ThresholdOptions& options) {
  command.add_option("--lt", options.ltDb, "Loss threshold, dB");
  command.add_option("--rt", options.rtDb, "Reflectance threshold, dB (negative)");
  command.add_option("--et", options.etDb, "End of fibre threshold, dB");
  command.add_option("--ct", options.ctDbPerKm, "Slope threshold, dB/km");
  CLI::Option* file = command.add_option("--thresholds", options.file, "INI document with all thresholds");
  command.add_option("--section", options.section, "Section of that document")
      ->needs(file)
      ->capture_default_str();
}

TTH ThresholdsFor(const TSorData& record, const ThresholdOptions& options) {
  TTH thresholds(nullptr);
  thresholds.THLoss = OrUsual(record.FxdParams->GetLT(), kUsualLtDb);
  thresholds.THRef = OrUsual(record.FxdParams->GetRT(), kUsualRtDb);
  thresholds.THEnd = OrUsual(record.FxdParams->GetET(), kUsualEtDb);
  thresholds.dBkm = OrUsual(record.QRTParams->GetCT(), kUsualCtDbPerKm);
  if (!options.file.empty()) {
    thresholds.path = options.file.c_str();
    if (!thresholds.HasSection(options.section.c_str())) {
      throw Problem(kUnreadable,
                    options.file + ": cannot be read or has no section [" + options.section + "]");
    }
    thresholds.IniTH(options.section.c_str(), "r");
  }
  if (options.ltDb) thresholds.THLoss = *options.ltDb;
  if (options.rtDb) thresholds.THRef = *options.rtDb;
  if (options.etDb) thresholds.THEnd = *options.etDb;
  if (options.ctDbPerKm) thresholds.dBkm = *options.ctDbPerKm;
  return thresholds;
}

void Analyse(Session& session, LoadedRecord& loaded, TTH& thresholds, bool endsOnly) {
  CallEngine(loaded.name, "analysed",
             [&] { session.Module().Analyse(*loaded.record, &thresholds, endsOnly); });
}

}  // namespace reflyze::cli
