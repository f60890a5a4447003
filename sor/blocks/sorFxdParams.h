// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>

#include "sor/blocks/sorBlock.h"
#include "sor/fields/sorFields.h"
#include "sor/scale/sorMath.h"
#include "util/export.h"

// The "FxdParams" block (SR-4731): how the trace was acquired, and the time base of its points.
//
// A trace is a row of stretches, each taken with a pulse width and a data spacing of its own. Every
// conversion between a point and its time walks the stretches. Times are one-way times in units of 100 ps.
// The conversions allocate nothing and accept whatever a file has put into the fields: counts and spacings of
// 0 or below are computed with like all others.
class REFLYZE_API TSorBlockFixedParameters : public TSorBlock {
 public:
  int DTS;                    // time of the measurement, s since 1970, UTC; a new block takes the present
  TString UD = "km";          // units of distance
  short AW = 0;               // actual wavelength: 0.1 nm by the standard, nm from many instruments
  int AO = 0;                 // acquisition offset: time of point 0, 100 ps
  int AOD = 0;                // acquisition offset as a distance
  short TPW = 3;              // number of stretches; set it through SetTPW
  short* PWU = nullptr;       // of each stretch: pulse width, ns
  int* DS = nullptr;          // of each stretch: data spacing, 100 ps per 10,000 points
  int* NPPW = nullptr;        // of each stretch: number of points
  int GI = 1;                 // group index times 100,000
  short BC = 800;             // backscatter coefficient, -0.1 dB
  int NAV = 0;                // number of averages
  unsigned short AT = 0;      // averaging time
  int AR = 0;                 // acquisition range, 100 ps
  int ARD = 0;                // acquisition range as a distance
  int FPO = 0;                // front panel offset, 100 ps
  unsigned short NF = 0;      // noise floor, raw: see GetNF
  short NFSF = 1000;          // noise floor scale factor; 0 in files of some instruments
  unsigned short PO = 0;      // power offset of the first point, 0.001 dB
  unsigned short LT = 200;    // loss threshold, 0.001 dB
  unsigned short RT = 40000;  // reflectance threshold, -0.001 dB
  unsigned short ET = 3000;   // end of fibre threshold, 0.001 dB
  TString TT = "ST";          // trace type: "ST" standard, "RT" reverse, "DT" difference, "RF" reference
  int WC0 = 0;                // window on the trace: two corners
  int WC1 = 0;
  int WC2 = 0;
  int WC3 = 0;

  // A new block has three stretches, of which only the first is filled: a record that is built in memory sets
  // them.
  TSorBlockFixedParameters();
  TSorBlockFixedParameters(const TSorBlockFixedParameters& other);
  TSorBlockFixedParameters& operator=(const TSorBlockFixedParameters& other);
  ~TSorBlockFixedParameters() override;

  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v) {
    v.Id("BID", b.ID);
    v.Int("DTS", b.DTS);
    v.FixedText("UD", b.UD, 2);
    v.Int("AW", b.AW);
    v.Int("AO", b.AO);
    v.Int("AOD", b.AOD, reflyze::kSinceRev200);
    v.Count("TPW", b, b.TPW, [](auto& self, short n) { self.SetTPW(n); });
    v.Array("PWU", b.PWU, b.TPW);
    v.Array("DS", b.DS, b.TPW);
    v.Array("NPPW", b.NPPW, b.TPW);
    v.Int("GI", b.GI);
    v.Int("BC", b.BC);
    v.Int("NAV", b.NAV);
    v.Int("AT", b.AT, reflyze::kSinceRev200);
    v.Int("AR", b.AR);
    v.Int("ARD", b.ARD, reflyze::kSinceRev200);
    v.Int("FPO", b.FPO);
    v.Int("NF", b.NF);
    v.Int("NFSF", b.NFSF);
    v.Int("PO", b.PO);
    v.Int("LT", b.LT);
    v.Int("RT", b.RT);
    v.Int("ET", b.ET);
    v.FixedText("TT", b.TT, 2, reflyze::kSinceRev200);
    v.Int("WC0", b.WC0, reflyze::kSinceRev200);
    v.Int("WC1", b.WC1, reflyze::kSinceRev200);
    v.Int("WC2", b.WC2, reflyze::kSinceRev200);
    v.Int("WC3", b.WC3, reflyze::kSinceRev200);
  }

  bool IsEmpty() const override { return false; }
  int GetBlockType() const override { return btFixedParameters; }
  int GetBlockLastKnownRevisionNo() const override { return kLastKnownRevisionNo; }
  // Copies every field and the three arrays. The form of the base ignores a block of another class.
  void Assign(const TSorBlock& other) override;
  void Assign(const TSorBlockFixedParameters& other);
  void Read(TSorFile* file) override;
  void Write(TSorFile* file) override;
  void Damp(FILE* out) const override;

  // Sets the number of stretches. The same number changes nothing; another one gives new arrays, filled with
  // 0. A number below 0, as a broken file may hold, is kept for a copy and stands for no stretches.
  void SetTPW(short n);

  // --- Values on their scales. Setters store into the raw field, held at its bounds. ---
  double GetRI() const { return GI * 1e-05; }  // group index
  void SetRI(double v);
  double GetBC() const { return -BC * 0.1; }  // dB, negative; the standard's reference pulse is 1 ns
  void SetBC(double v);
  double GetLT() const { return LT / 1000.0; }  // dB
  void SetLT(double v);
  double GetRT() const { return RT / -1000.0; }  // dB, negative
  void SetRT(double v);                          // not below -65 dB
  double GetET() const { return ET / 1000.0; }   // dB
  void SetET(double v);
  double GetPO() const { return PO / 1000.0; }  // dB
  // Noise floor in dB, negative. Without a scale factor the raw value is in 0.001 dB.
  double GetNF() const { return NFSF == 0 ? NF / -1000.0 : (-NF * NFSF) * 1e-06; }
  // Keeps the scale factor where the raw field can hold the level on a scale of 1000, and raises it where
  // not.
  void SetNF(double v);
  short GetNFSF() const { return NFSF; }
  void SetNFSF(short v) { NFSF = v; }

  // --- The time base ---
  // Time of point 0: the acquisition offset, or else the front panel's place behind the launch.
  double GetOwtDataOffset() const { return static_cast<double>(AO != 0 ? AO : -static_cast<long long>(FPO)); }
  // Spacing of one point of stretch i, as one-way time. There is no spacing outside the stretches: 0.
  double GetOwtDS(int i) const { return i >= 0 && i < TPW ? DS[i] / kPointsPerDS : 0.0; }
  // The same in nanoseconds of pulse.
  double GetDS(int i) const { return SorMathOwtToNs(GetOwtDS(i)); }
  long GetTotalPinPW() const;  // points of all stretches
  // The stretch that holds point n; the last one for a point past all, and below 0 where there are no
  // stretches.
  int NumToNPW(long n) const;
  // Time of point n. Every point at or past the total has the end time, and a point before 0 the time that
  // the first stretch would give it.
  double NumToOwt(long n) const;
  // Point number of a time, with fraction: -1 before the first point, the total past the end.
  double OwtTofNum(double owt) const;
  double GetMinOwt() const { return NumToOwt(0); }
  double GetMaxOwt() const { return NumToOwt(GetTotalPinPW()); }
  // A difference of times as a difference of points, in the stretch of point n.
  double dOwtTodNum(long n, double dOwt) const { return dOwt / GetOwtDS(NumToNPW(n)); }

  double OwtToLen(double owt) const { return SorMathOwtToLen(owt, GetRI()); }  // km
  double LenToOwt(double len) const { return SorMathLenToOwt(len, GetRI()); }
  double LenDS() const { return OwtToLen(GetOwtDS(0)); }  // km of one point of the first stretch
  // Pulse width at a time, in ns and as one-way time; 0 where there are no stretches.
  double GetNsPulse(double owt) const;
  double GetOwtPulse(double owt) const { return SorMathNsToOwt(GetNsPulse(owt)); }
  // Time of the measurement, on the clock of this place.
  TString GetDateTimeStr() const;

 private:
  static constexpr double kPointsPerDS = 10000.0;

  void AllocateStretches(short n);
  void FreeStretches();
};

inline long TSorBlockFixedParameters::GetTotalPinPW() const {
  std::int64_t total = 0;
  for (int i = 0; i < TPW; ++i) total += NPPW[i];
  constexpr std::int64_t kMost = std::numeric_limits<long>::max();
  return static_cast<long>(std::min(total, kMost));
}

inline int TSorBlockFixedParameters::NumToNPW(long n) const {
  std::int64_t end = 0;
  for (int i = 0; i < TPW; ++i) {
    end += NPPW[i];
    if (n < end) return i;
  }
  return TPW - 1;
}

inline double TSorBlockFixedParameters::NumToOwt(long n) const {
  double owt = GetOwtDataOffset();
  // First point of stretch i. The difference to n is taken only where it can't overflow.
  std::int64_t first = 0;
  for (int i = 0; i < TPW; ++i) {
    const double spacingOwt = DS[i] / kPointsPerDS;
    if (n < first + NPPW[i]) return owt + spacingOwt * static_cast<double>(n - first);
    owt += spacingOwt * NPPW[i];
    first += NPPW[i];
  }
  return owt;
}

inline double TSorBlockFixedParameters::OwtTofNum(double owt) const {
  const long total = GetTotalPinPW();
  if (owt < GetMinOwt()) return -1.0;
  if (owt > NumToOwt(total)) return static_cast<double>(total);
  double restOwt = owt - GetOwtDataOffset();
  std::int64_t first = 0;
  for (int i = 0; i < TPW; ++i) {
    const double spacingOwt = DS[i] / kPointsPerDS;
    const double stretchOwt = spacingOwt * NPPW[i];
    if (restOwt < stretchOwt) return static_cast<double>(first) + restOwt / spacingOwt;
    restOwt -= stretchOwt;
    first += NPPW[i];
  }
  return static_cast<double>(first);
}
