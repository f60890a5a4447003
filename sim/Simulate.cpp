// SPDX-License-Identifier: Apache-2.0
#include "sim/Simulate.h"

#include <algorithm>
#include <cmath>

#include "sim/Noise.h"
#include "sim/Waveform.h"
#include "util/convert.h"
#include "util/latin1.h"

namespace reflyze::sim {
namespace {

constexpr short kScaleFactor = 1000;  // samples in steps of 0.001 dB
constexpr double kDsPerOwt = 10000.0;

unsigned short SampleOf(double levelDb) {
  const double steps = std::floor(-levelDb * 1000.0 + 0.5);
  return TruncToUShort(std::max(steps, 0.0));
}

// The scales of the record. They are set first, because their fields are integers: the trace is then computed
// for the spacing, offset, group index and pulse that the record really states.
void FillScales(const Link& link, TSorData& record) {
  TSorBlockFixedParameters& fixed = *record.FxdParams;
  fixed.DTS = static_cast<int>(link.dateUtc);
  fixed.AW = TruncToShort(link.wavelengthNm * 10.0 + 0.5);
  fixed.SetRI(link.groupIndex);
  fixed.SetTPW(1);
  fixed.PWU[0] = TruncToShort(link.pulseNs + 0.5);
  fixed.DS[0] = TruncToInt(fixed.LenToOwt(link.spacingM / 1000.0) * kDsPerOwt + 0.5);
  fixed.NPPW[0] = static_cast<int>(link.points);
  fixed.AO = -TruncToInt(fixed.LenToOwt(link.leadKm) + 0.5);
  fixed.AOD = fixed.AO;
  fixed.FPO = 0;
  const double backscatterDb = link.sections.empty() ? -81.9 : link.sections.front().backscatterDb;
  fixed.SetBC(link.storesBackscatter ? backscatterDb : 0.0);
  fixed.NAV = static_cast<int>(link.averages);
  fixed.AT = 300;
  fixed.AR = TruncToInt(fixed.GetMaxOwt() + 0.5);
  fixed.ARD = fixed.AR;
  fixed.SetLT(link.lossThresholdDb);
  fixed.SetRT(link.reflectanceThresholdDb);
  fixed.SetET(link.endThresholdDb);
}

void FillTexts(const Link& link, TSorData& record) {
  record.GenParams->CID = link.name.empty() ? " " : Latin1(link.name).c_str();
  record.GenParams->FID = Latin1(link.fibre).c_str();
  record.GenParams->NW = TruncToShort(link.wavelengthNm + 0.5);
  record.GenParams->OL = Latin1(link.from).c_str();
  record.GenParams->TL = Latin1(link.to).c_str();
  record.SupParams->SN = "simulated";
  record.SupParams->OTDR = "1";
  record.SupParams->SR = "1.0";
  // A standard record and nothing else: what an instrument of any maker would store.
  record.WriteProprietaryBlocks = 0;
  record.QRTParams->LDTS = static_cast<int>(link.dateUtc);
}

// Noise of the averaged samples before the instrument smooths them.
double RawNoiseRms(const Link& link) {
  return PowerOfLevel(link.receiver.noiseDb) / std::sqrt(static_cast<double>(link.averages));
}

// Noise of the samples as they are stored. The mean of n samples of variance 1, of which two that are k apart
// correlate by c^k, has the variance (n + 2 sum (n - k) c^k) / n^2, summed over k = 1 to n - 1.
double NoiseRms(const Link& link) {
  const auto n = static_cast<double>(link.receiver.smoothingPoints);
  double sum = n, correlation = 1.0;
  for (long k = 1; k < link.receiver.smoothingPoints; ++k) {
    correlation *= link.receiver.noiseCorrelation;
    sum += 2.0 * (n - static_cast<double>(k)) * correlation;
  }
  return RawNoiseRms(link) * std::sqrt(sum) / n;
}

// Noise in which neighbours correlate by c: n' = c n + sqrt(1 - c^2) w with white w keeps the variance.
class CorrelatedNoise {
 public:
  CorrelatedNoise(std::uint64_t seed, double correlation)
      : white_(seed), keep_(correlation), fresh_(std::sqrt(1.0 - correlation * correlation)) {}

  double Next() {
    const double white = white_.Next();
    if (keep_ == 0.0) return white;
    last_ = started_ ? keep_ * last_ + fresh_ * white : white;
    started_ = true;
    return last_;
  }

 private:
  Noise white_;
  double keep_, fresh_, last_ = 0.0;
  bool started_ = false;
};

// The mean of each power and its neighbours on both sides, of fewer where the trace begins and ends.
std::vector<double> Smoothed(const std::vector<double>& powers, long points) {
  const auto count = static_cast<long>(powers.size());
  std::vector<double> means(powers.size());
  for (long i = 0; i < count; ++i) {
    const long half = std::min({points / 2, i, count - 1 - i});
    double sum = 0.0;
    for (long k = i - half; k <= i + half; ++k) sum += powers[static_cast<size_t>(k)];
    means[static_cast<size_t>(i)] = sum / static_cast<double>(2 * half + 1);
  }
  return means;
}

// What the instrument makes of the light: noise, clipping, its own smoothing and the logarithm.
void FillPoints(const Link& link, const std::vector<double>& light, std::uint64_t seed,
                SimulatedTrace& trace) {
  const Receiver& receiver = link.receiver;
  const double saturation = PowerOfLevel(receiver.saturationDb);
  const double floorPower = PowerOfLevel(receiver.floorDb);
  const double noiseRms = RawNoiseRms(link), storedRms = NoiseRms(link);
  const double dark = receiver.offsetOfNoise * storedRms;
  CorrelatedNoise noise(seed, receiver.noiseCorrelation);
  const auto level = [&](double power) {
    return power > floorPower ? std::min(LevelOfPower(power), 0.0) : receiver.floorDb;
  };
  std::vector<double> seen(light.size()), clean(light.size());
  for (size_t i = 0; i < light.size(); ++i) {
    seen[i] = std::min(light[i] + noiseRms * noise.Next() + dark, saturation);
    clean[i] = std::min(light[i] + dark, saturation);
  }
  if (receiver.smoothingPoints > 1) {
    seen = Smoothed(seen, receiver.smoothingPoints);
    clean = Smoothed(clean, receiver.smoothingPoints);
  }
  auto* points = trace.record->DataPts;
  std::vector<unsigned short>& samples = points->GetSubBlock()->samples;
  points->GetSubBlock()->SetScaleFactor(kScaleFactor);
  samples.resize(light.size());
  trace.cleanDb.resize(light.size());
  for (size_t i = 0; i < light.size(); ++i) {
    samples[i] = SampleOf(level(seen[i]));
    trace.cleanDb[i] = static_cast<float>(level(clean[i]));
  }
  // Does what follows a reading, so that a record from here is like one from a file.
  trace.record->UpdateChildrenWithNewDataType();
  trace.record->CalculateValues();
  trace.record->SetLinf();
  // The noise floor of a record is the level that 98 % of the noise stays below: 2.054 standard deviations.
  const double floorDb = std::max(LevelOfPower(2.054 * storedRms), receiver.floorDb);
  trace.record->FxdParams->SetNF(link.storesNoiseFloor ? floorDb : 0.0);
}

class TruthTeller {
 public:
  TruthTeller(const Link& link, const Waveform& waveform) : link_(link), waveform_(waveform) {}

  Truth Tell(double lastKm) {
    truth_.noiseDb = LevelOfPower(NoiseRms(link_));
    AddLaunch();
    double lost = 0.0;
    for (size_t i = 0; i < link_.joints.size() && waveform_.JointKm(i + 1) < lastKm; ++i) {
      lost += SectionLoss(i);
      AddJoint(i);
      lost += truth_.events.back().lossDb;
    }
    if (!link_.sections.empty()) {
      const double endKm = waveform_.JointKm(link_.sections.size());
      truth_.endInRange = endKm < lastKm;
      lost += truth_.endInRange ? SectionLoss(link_.sections.size() - 1) : 0.0;
      AddEnd(std::min(endKm, lastKm));
      for (const Reflector& echo : waveform_.echoes()) {
        if (echo.positionKm < lastKm) truth_.ghostsKm.push_back(echo.positionKm);
      }
    }
    truth_.totalLossDb = lost;
    truth_.lengthKm = truth_.events.back().distanceKm;
    return truth_;
  }

 private:
  double SectionLoss(size_t i) const {
    return link_.sections[i].lengthKm * link_.sections[i].attenuationDbPerKm;
  }

  TrueEvent Event(double distanceKm, const Joint& joint, double levelDb) const {
    TrueEvent event;
    event.number = static_cast<int>(truth_.events.size()) + 1;
    event.distanceKm = distanceKm;
    event.insertionLossDb = joint.lossDb;
    event.reflectanceDb = joint.reflectanceDb;
    event.snrDb = levelDb - truth_.noiseDb;
    if (joint.reflectanceDb) {
      for (const Reflector& reflector : waveform_.reflectors()) {
        if (reflector.positionKm != distanceKm) continue;
        const double before = waveform_.BackscatterPower(distanceKm);
        const double reference = before > 0.0 ? before : PowerOfLevel(link_.launchLevelDb);
        event.peakDb = LevelOfPower((reference + reflector.power) / reference);
        event.saturated = reference + reflector.power >= PowerOfLevel(link_.receiver.saturationDb);
      }
    }
    return event;
  }
  // Level of the backscatter one pulse behind a joint, where a step is over.
  double LevelBehind(double km) const {
    return LevelOfPower(std::max(waveform_.BackscatterPower(km + waveform_.pulseKm()), 1e-300));
  }
  const char* CodeOf(const TrueEvent& event, bool end) const {
    const bool reflective = event.reflectanceDb.has_value();
    if (end) return event.saturated ? "2E9999" : reflective ? "1E9999" : "0E9999";
    return event.saturated ? "2F9999" : reflective ? "1F9999" : "0F9999";
  }

  void AddLaunch() {
    TrueEvent event = Event(0.0, link_.launch, link_.launchLevelDb);
    event.code = CodeOf(event, link_.sections.empty());
    truth_.events.push_back(event);
  }
  void AddJoint(size_t i) {
    const double km = waveform_.JointKm(i + 1);
    TrueEvent event = Event(km, link_.joints[i], LevelBehind(km));
    // A fibre that scatters more behind the joint lifts the trace by half the difference in dB. The joint
    // looks like a gain.
    event.lossDb = link_.joints[i].lossDb -
                   (link_.sections[i + 1].backscatterDb - link_.sections[i].backscatterDb) / 2.0;
    event.attenuationDbPerKm = link_.sections[i].attenuationDbPerKm;
    event.backscatterOffDb = link_.sections[i].backscatterDb - link_.sections.front().backscatterDb;
    event.code = CodeOf(event, false);
    truth_.events.push_back(event);
  }
  void AddEnd(double km) {
    TrueEvent event = Event(km, truth_.endInRange ? link_.end : Joint{},
                            LevelOfPower(std::max(waveform_.BackscatterPower(km), 1e-300)));
    event.insertionLossDb = 0.0;
    event.attenuationDbPerKm = link_.sections.back().attenuationDbPerKm;
    event.code = truth_.endInRange ? CodeOf(event, true) : "0O9999";
    truth_.events.push_back(event);
  }

  const Link& link_;
  const Waveform& waveform_;
  Truth truth_;
};

}  // namespace

SimulatedTrace Simulate(const Link& link, std::uint64_t seed) {
  SimulatedTrace trace;
  trace.record = std::make_unique<TSorData>();
  FillScales(link, *trace.record);
  FillTexts(link, *trace.record);
  Link stated = link;
  stated.groupIndex = trace.record->FxdParams->GetRI();
  stated.pulseNs = trace.record->FxdParams->PWU[0];
  const double firstKm = trace.record->NumToALen(0);
  const double stepKm = trace.record->FxdParams->LenDS();
  constexpr std::uint64_t kFadingSeed =
      0x9E3779B97F4A7C15;  // so that fading and noise have nothing in common
  const Waveform waveform(stated, seed ^ kFadingSeed);
  FillPoints(stated, waveform.ReceiverOutput(firstKm, stepKm, link.points), seed, trace);
  trace.truth = TruthTeller(stated, waveform).Tell(firstKm + stepKm * static_cast<double>(link.points - 1));
  return trace;
}

nlohmann::ordered_json JsonOfTruth(const std::string& file, const TSorData& record, const Truth& truth) {
  nlohmann::ordered_json json = {{"file", file},
                                 {"points", record.DataPts->GetPointsNum()},
                                 {"wavelength_nm", record.FxdParams->AW / 10.0},
                                 {"pulse_ns", record.FxdParams->GetNsPulse(0.0)},
                                 {"spacing_m", record.FxdParams->LenDS() * 1000.0},
                                 {"thresholds",
                                  {{"lt_db", record.FxdParams->GetLT()},
                                   {"rt_db", record.FxdParams->GetRT()},
                                   {"et_db", record.FxdParams->GetET()},
                                   {"ct_db_per_km", record.QRTParams->GetCT()}}},
                                 {"noise_floor_db", record.FxdParams->GetNF()},
                                 {"noise_rms_db", truth.noiseDb},
                                 {"length_km", truth.lengthKm},
                                 {"total_loss_db", truth.totalLossDb},
                                 {"orl_db", nullptr},
                                 {"ghosts_km", truth.ghostsKm}};
  json["events"] = nlohmann::ordered_json::array();
  for (const TrueEvent& event : truth.events) {
    nlohmann::ordered_json row = {
        {"number", event.number},          {"ept", record.LenToOwt(event.distanceKm)},
        {"distance_km", event.distanceKm}, {"code", event.code},
        {"loss_db", event.lossDb},         {"insertion_loss_db", event.insertionLossDb}};
    row["reflectance_db"] = event.reflectanceDb ? nlohmann::ordered_json(*event.reflectanceDb) : nullptr;
    row["peak_db"] = event.peakDb;
    row["attenuation_db_per_km"] = event.attenuationDbPerKm;
    row["snr_db"] = event.snrDb;
    json["events"].push_back(std::move(row));
  }
  return json;
}

}  // namespace reflyze::sim
