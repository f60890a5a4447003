#include "cli/Plausible.h"

#include <algorithm>
#include <cmath>

#include "ref/refAuto.h"
#include "ref/ref_Math.h"
#include "sor/sorData.h"
#include "util/convert.h"

namespace reflyze::cli {
namespace {

// Backscatter fills every part of a stretch; the echo of a reflection fills a few, and the tail of one is
// over before the stretch begins.
constexpr double kTailKm = 1.0;
constexpr double kTailPulses = 20.0;
constexpr double kStretchKm = 0.5;
constexpr double kStretchPulses = 8.0;
constexpr long kParts = 8;

// Behind an event the receiver has to recover: so far at most, where anything can be measured behind it at
// all.
constexpr double kShadowKm = 1.0;
constexpr double kShadowPulses = 12.0;
constexpr double kSectionKm = 0.2;    // a stretch so long is a section, whatever the pulse
constexpr double kOverNoiseDb = 3.0;  // from here on a section could have been measured

// What fits, noise and the loss of the launch may add to the loss of the link.
constexpr double kToleranceDb = 1.0;

bool LightGoesOn(TSorData& record) {
  const TSorBlockKeyEvents& table = *record.KeyEvents;
  float* lin = RefEmbGetLinf(&record);
  const int events = table.ListedEvents();
  const double spacingKm = record.FxdParams->LenDS();
  if (events < 1 || lin == nullptr || !(spacingKm > 0.0)) return false;
  const double pulseKm = record.dOwtToLen(record.FxdParams->GetOwtPulse(0));
  const double fromKm =
      record.OwtToLen(table.EventAt(events - 1).EPT) + std::max(kTailKm, kTailPulses * pulseKm);
  const double points = static_cast<double>(record.DataPts->GetPointsNum());
  const double from = record.LenToNum(fromKm);
  const double part =
      std::max(kStretchKm, kStretchPulses * pulseKm) / spacingKm / static_cast<double>(kParts) + 1.0;
  if (!(from >= 0.0) || !(from + static_cast<double>(kParts) * part < points)) return false;
  const long count = TruncToLong(part);
  for (long i = 0; i < kParts; ++i) {
    const long first = TruncToLong(from) + i * count;
    if (!(RefMathPower(&record, lin, first, count, 1) > record.FxdParams->GetNF())) return false;
  }
  return true;
}

bool LosesMoreThanTheLink(const TSorData& record) {
  const TSorBlockKeyEvents& table = *record.KeyEvents;
  const double mostDb = std::max(table.GetEEL(), 0.0) + kToleranceDb;
  for (int i = 1; i + 1 < table.ListedEvents(); ++i) {
    if (std::fabs(table.EventAt(i).GetEL()) > mostDb) return true;
  }
  return false;
}

// Whether a long stretch of fibre behind an event belongs to no section, though it shows light: a gain, say,
// was taken for a reflection that goes on until the next event.
bool LeavesFibreOut(TSorData& record) {
  const TSorBlockKeyEvents& table = *record.KeyEvents;
  const double pulseKm = record.dOwtToLen(record.FxdParams->GetOwtPulse(0));
  const double mostKm = kShadowKm + kShadowPulses * pulseKm;
  for (int i = 1; i + 1 < table.ListedEvents(); ++i) {  // the launch may take what it needs
    const TSorBlockKeyEvents1E& event = table.EventAt(i);
    const TSorBlockKeyEvents1E& next = table.EventAt(i + 1);
    if (record.OwtToLen(next.ML0) - record.OwtToLen(event.EPT) > mostKm &&
        record.OwtToLevel(next.ML0, 1) > record.FxdParams->GetNF() + kOverNoiseDb)
      return true;
  }
  return false;
}

// Whether two events with a section of fibre between them are taken for one doubled reflection. A pulse of
// few points leads to that behind a splice; losses around such a pair are those of both together.
bool DoublesFarEvents(const TSorData& record) {
  const TSorBlockKeyEvents& table = *record.KeyEvents;
  const double farKm = kSectionKm + kShadowPulses * record.dOwtToLen(record.FxdParams->GetOwtPulse(0));
  for (int i = 1; i < table.ListedEvents(); ++i) {
    const TSorBlockKeyEvents1E& event = table.EventAt(i);
    if (event.CMT == "Possibly doubled reflection" &&
        record.OwtToLen(event.EPT) - record.OwtToLen(table.EventAt(i - 1).EPT) > farKm) {
      return true;
    }
  }
  return false;
}

bool IsInOrder(const TSorData& record) {
  const TSorBlockKeyEvents& table = *record.KeyEvents;
  for (int i = 0; i + 1 < table.ListedEvents(); ++i) {
    if (table.EventAt(i).EPT > table.EventAt(i + 1).EPT) return false;
  }
  return true;
}

}  // namespace

void GiveReceiverRate(TSorData& record) {
  constexpr double kUntoldDbPerKm = 10.5;  // the engine's least rate: it found no edge
  constexpr float kLeastEdgeDb = 0.3F;
  constexpr long kEdgeParts = 8;
  std::vector<TMeasurementMode>& modes = record.QRTParams->modes;
  const double spacingOwt = record.FxdParams->GetOwtDS(0);
  if (modes.empty() || modes.front().BWU1 != 0 || !(spacingOwt > 0.0)) return;
  if (RefAutoGetDbOnOwt(&record) * record.dLenToOwt(1.0) > kUntoldDbPerKm) return;
  const double pulseOwt = record.FxdParams->GetOwtPulse(0);
  const long pulse = TruncToLong(pulseOwt / spacingOwt);
  const long end = TruncToLong(record.OwtTofNum(pulseOwt));
  const long base = std::max(pulse / kEdgeParts, 1L);
  const long first = end - base, last = end + pulse + base;
  if (pulse < 1 || first < 0 || last >= record.DataPts->GetPointsNum()) return;
  long at = first;
  if (RefAutoSearchMaxdbFall(&record, first, last, base, at, 100.0F) < kLeastEdgeDb) return;
  modes.front().BWU1 = TruncToShort(RefAutoSearchMaxFall(&record, first, last, base, at));
}

int Implausibility(TSorData& record) {
  constexpr int kDisorder = 16, kLight = 8, kLeftOut = 4, kLoss = 2, kDoubled = 1;
  return (IsInOrder(record) ? 0 : kDisorder) + (LightGoesOn(record) ? kLight : 0) +
         (LeavesFibreOut(record) ? kLeftOut : 0) + (LosesMoreThanTheLink(record) ? kLoss : 0) +
         (DoublesFarEvents(record) ? kDoubled : 0);
}

}  // namespace reflyze::cli
