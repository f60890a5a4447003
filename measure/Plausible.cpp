// SPDX-License-Identifier: Apache-2.0
#include "measure/Plausible.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "ref/math/ref_Math.h"
#include "ref/refAuto.h"
#include "sor/sorData.h"
#include "util/convert.h"

namespace reflyze {
namespace {

// Backscatter fills every part of a stretch; the echo of a reflection fills a few. The tail of a reflection
// may fill all parts, but falls faster than most fibres do.
constexpr double kBehindKm = 0.2;
constexpr double kBehindPulses = 6.0;
constexpr double kStretchKm = 0.2;
constexpr double kStretchPulses = 6.0;
constexpr long kParts = 8;
constexpr double kSteepestFibre = 1.5;  // times what a fibre loses at the wavelength
constexpr double kTailFallDb = 0.5;     // more than that; less may be noise

// Behind an event the receiver has to recover. This is the most that it may take where anything can be
// measured behind the event.
constexpr double kShadowKm = 1.0;
constexpr double kShadowPulses = 12.0;
constexpr double kSectionKm = 0.2;    // a stretch so long is a section, whatever the pulse
constexpr double kOverNoiseDb = 3.0;  // from here on a section could have been measured

// By how much fits, noise and the loss of the launch may change the loss of the link.
constexpr double kToleranceDb = 1.0;

bool FallsLikeATail(TSorData& record, const std::vector<double>& levelsDb, double partKm) {
  std::vector<double> fallsDb;
  for (size_t i = 1; i < levelsDb.size(); ++i) fallsDb.push_back(levelsDb[i - 1] - levelsDb[i]);
  const auto middle = fallsDb.begin() + static_cast<long>(fallsDb.size() / 2);
  std::nth_element(fallsDb.begin(), middle, fallsDb.end());
  const double fibreDb = kSteepestFibre * RefAutoGetLoss(&record) * partKm;
  const double mostDb = fibreDb * static_cast<double>(fallsDb.size()) + kTailFallDb;
  return *middle > fibreDb && levelsDb.front() - levelsDb.back() > mostDb;
}

bool LightGoesOn(TSorData& record) {
  const TSorBlockKeyEvents& table = *record.KeyEvents;
  float* lin = RefEmbGetLinf(&record);
  const int events = table.ListedEvents();
  const double spacingKm = record.FxdParams->LenDS();
  if (events < 1 || lin == nullptr || !(spacingKm > 0.0)) return false;
  const double pulseKm = record.dOwtToLen(record.FxdParams->GetOwtPulse(0));
  const double fromKm =
      record.OwtToLen(table.EventAt(events - 1).EPT) + std::max(kBehindKm, kBehindPulses * pulseKm);
  const double points = static_cast<double>(record.DataPts->GetPointsNum());
  const double from = record.LenToNum(fromKm);
  const double partKm = std::max(kStretchKm, kStretchPulses * pulseKm) / static_cast<double>(kParts);
  const double part = partKm / spacingKm + 1.0;
  if (!(from >= 0.0) || !(from + static_cast<double>(kParts) * part < points)) return false;
  const long count = TruncToLong(part);
  std::vector<double> levelsDb;
  for (long i = 0; i < kParts; ++i) {
    const long first = TruncToLong(from) + i * count;
    levelsDb.push_back(RefMathPower(&record, lin, first, count, 1));
    if (!(levelsDb.back() > record.FxdParams->GetNF())) return false;
  }
  return !FallsLikeATail(record, levelsDb, static_cast<double>(count) * spacingKm);
}

bool LosesMoreThanTheLink(const TSorData& record) {
  const TSorBlockKeyEvents& table = *record.KeyEvents;
  const double mostDb = std::max(table.GetEEL(), 0.0) + kToleranceDb;
  for (int i = 1; i + 1 < table.ListedEvents(); ++i) {
    if (std::fabs(table.EventAt(i).GetEL()) > mostDb) return true;
  }
  return false;
}

// Whether a long stretch of fibre behind an event belongs to no section, though it shows light. This happens
// where a gain, say, was taken for a reflection that goes on until the next event.
bool LeavesFibreOut(TSorData& record) {
  const TSorBlockKeyEvents& table = *record.KeyEvents;
  const double pulseKm = record.dOwtToLen(record.FxdParams->GetOwtPulse(0));
  const double mostKm = kShadowKm + kShadowPulses * pulseKm;
  for (int i = 1; i + 1 < table.ListedEvents(); ++i) {  // the launch may be as long as it needs
    const TSorBlockKeyEvents1E& event = table.EventAt(i);
    const TSorBlockKeyEvents1E& next = table.EventAt(i + 1);
    if (record.OwtToLen(next.ML0) - record.OwtToLen(event.EPT) > mostKm &&
        record.OwtToLevel(next.ML0, 1) > record.FxdParams->GetNF() + kOverNoiseDb)
      return true;
  }
  return false;
}

// Whether two events with a section of fibre between them are taken for one doubled reflection. A pulse of
// few points leads to that behind a splice. Losses measured around such a pair are those of both together.
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
  constexpr double kUntoldDbPerKm = 10.5;   // the engine's least rate: it found no edge
  constexpr double kAtOnceDbPerKm = 999.0;  // its rate for pulses that it expects no edge of
  constexpr double kClearLaunchDb = 4.0;    // from there on the engine's rate is the receiver's
  constexpr double kLeastEdgeDb = 0.1, kSureNoise = 3.0;
  constexpr double kLeastShare = 0.1;
  constexpr long kEdgeParts = 8;
  std::vector<TMeasurementMode>& modes = record.QRTParams->modes;
  const double spacingOwt = record.FxdParams->GetOwtDS(0);
  if (modes.empty() || modes.front().BWU1 != 0 || !(spacingOwt > 0.0)) return;
  const double toldDbPerKm = RefAutoGetDbOnOwt(&record) * record.dLenToOwt(1.0);
  if (toldDbPerKm >= kAtOnceDbPerKm) return;
  const double pulseOwt = record.FxdParams->GetOwtPulse(0);
  const long pulse = TruncToLong(pulseOwt / spacingOwt);
  const long end = TruncToLong(record.OwtTofNum(pulseOwt));
  const long base = std::max(pulse / kEdgeParts, 1L);
  const long first = end - base, last = end + pulse + base;
  if (pulse < 1 || first < 0 || last >= record.DataPts->GetPointsNum()) return;
  long at = first;
  const double edgeDb = RefAutoSearchMaxdbFall(&record, first, last, base, at, 100.0F);
  if (edgeDb < std::max(kLeastEdgeDb, kSureNoise * RefMathAddNoise(&record, last, base, 0))) return;
  const double edgeDbPerKm = RefAutoSearchMaxFall(&record, first, last, base, at);
  float topDb = 0.0F;
  RefAutoGetMax(&record, first, at, topDb, 1);
  const double heightDb = topDb - RefMathPower(&record, at + pulse / 2, std::max(pulse / 4, 1L), 0);
  const bool untold = toldDbPerKm <= kUntoldDbPerKm;
  if (!untold && heightDb > kClearLaunchDb) return;
  const double dbPerKm = edgeDbPerKm / std::clamp(1.0 - SorMathPow5(-heightDb), kLeastShare, 1.0);
  if (untold || dbPerKm > toldDbPerKm) modes.front().BWU1 = TruncToShort(dbPerKm);
}

int Implausibility(TSorData& record) {
  constexpr int kDisorder = 16, kLight = kWrongTable, kLeftOut = 4, kLoss = 2, kDoubled = 1;
  return (IsInOrder(record) ? 0 : kDisorder) + (LightGoesOn(record) ? kLight : 0) +
         (LeavesFibreOut(record) ? kLeftOut : 0) + (LosesMoreThanTheLink(record) ? kLoss : 0) +
         (DoublesFarEvents(record) ? kDoubled : 0);
}

}  // namespace reflyze
