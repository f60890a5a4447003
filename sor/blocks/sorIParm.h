// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "sor/blocks/sorBlock.h"
#include "sor/blocks/sorIParmRecords.h"
#include "sor/blocks/sorPoint.h"
#include "sor/fields/sorFieldLists.h"
#include "sor/scale/sorLevelScale.h"
#include "util/export.h"

namespace reflyze {

// From levels in dB to linear values, for loops over many levels. A level is counted from `maxDb`: a level
// above it has a positive value, one below a negative one. Levels below are expanded by a whole factor first.
class LinearScale {
 public:
  LinearScale(double maxDb, int expansion) : maxDb_(maxDb), expansion_(expansion) {}

  double LinOf(double levelDb) const { return LinOf(levelDb, Pow5); }
  // `pow5` is Pow5 or, for the levels of points in a row, a Pow5Run.
  template <class Pow>
  double LinOf(double levelDb, Pow&& pow5) const {
    double db = levelDb - maxDb_;
    if (db * kStraightLin > kStraightUpTo) return pow5(db);  // most levels of a trace
    if (db < 0.0) db *= expansion_;
    const double lin = db * kStraightLin;
    return lin < -kStraightUpTo ? -Pow5(-db) : lin;
  }

 private:
  double maxDb_;
  int expansion_;
};

// Undoes the compression of levels below `maxDb` by a whole factor.
template <class Real>
class Expansion {
 public:
  Expansion(Real maxDb, int factor) : maxDb_(maxDb), factor_(static_cast<Real>(factor)) {}

  Real LevelOf(Real levelDb) const {
    return levelDb < maxDb_ ? (levelDb - maxDb_) * factor_ + maxDb_ : levelDb;
  }

 private:
  Real maxDb_, factor_;
};

}  // namespace reflyze

// The "QRTParams" block: how the instrument took the trace, and how its level scale works. It has grown by a
// field or a group with each revision from 200 to 232; it always goes to file in the newest form.
//
// The level scale is 5 log10 of the linear power, the one-way decibel of IEC 61746-1, counted from `MAX`, the
// lowest level that the instrument records. Around 0 the scale runs straight through instead of falling
// without end, so that noise keeps its sign, and levels below `MAX` may be compressed by a whole factor.
class REFLYZE_API TSorBlockQRTParameters : public TSorBlock {
 public:
  static constexpr int kNewestRevisionNo = 232;     // goes to file in this one
  static constexpr double kPeaksOverNoiseDb = 2.4;  // the peaks of noise lie this far above its level

  short Flags = 0;  // see the accessors below
  short dOwt0 = 0;  // time corrections
  short dOwt1 = 0;
  unsigned short ATP0 = 0;  // pulse of the first stretch where it differs from the stored one, 100 ps one way
  unsigned short LFPO = 0;  // front panel offset of the laser
  short TGI = 0;            // number of stretches with a group index of their own; set it through SetTGI
  std::vector<int> GIU;     // of each: group index
  std::vector<int> NPGI;    // of each: number of points
  short TMM = 1;            // number of measurement modes; set it through ReNewMM
  std::vector<TMeasurementMode> modes = std::vector<TMeasurementMode>(1);
  unsigned short MAX = 0;   // lowest recorded level, in units of `Scale`, sign dropped; see GetMAX
  unsigned short ZERO = 0;  // linear zero offset, 1/65535
  short TMC = 0;            // number of filter coefficients; set it through SetTMC
  std::vector<short> MC;    // filter coefficients, 0.0001
  unsigned short NT = 200;
  unsigned short CT = 300;  // slope threshold, 0.001 dB/km
  unsigned short BT = 3000;
  unsigned short TNL = 0;         // number of noise log entries; set it through SetTNL
  unsigned short SNL = 0;         // signal-to-noise ratio at the start of the noise log, 0.001 dB
  unsigned short NASF = 1;        // averages per step of the noise log
  unsigned short NLSF = 50;       // 0.001 dB per step of the noise log
  std::vector<signed char> NAVR;  // noise log: steps of the number of averages
  std::vector<signed char> SNR;   // noise log: steps of the ratio
  TString COMM = " ";             // comment
  short VLFL = 0;                 // visual locator flag
  short TVL = 0;                  // number of visual locator pairs; set it through SetTVL
  std::vector<short> TypeEvent;
  std::vector<short> PosInPoint;
  unsigned short TEMP = 0;     // temperature, K
  unsigned short TNWL = 0;     // number of associated files; set it through SetTNWL
  std::vector<TString> Paths;  // of the associated files; neither read nor written with the block
  short FLevel = 0;            // filter level times 10; see GetFilterLevel
  TString TYP = "RL";          // what the data are; see GetDataType
  unsigned short LF = 0;       // laser frequency factor; see GetLF
  unsigned short Xol = 0;
  short PWM = -1;
  TQRTServiceInfo ServiceInfo;
  int LDTS;                  // local time of the measurement, s since 1970; a new block takes the present
  short TEMP2 = 0;           // second temperature, 0.01 K
  short begLevel = 0;        // level at the start, 0.01 dB
  char OriginData[16] = {};  // signature of the instrument
  short Scale = 1000;        // units of `MAX`, 1e-6 dB
  PonParameters Pon;
  short Force = 0;
  short LaserAtt = 0;  // attenuation of the laser, 0.001 dB
  short SW1 = 0;       // see GetSW
  short SW2 = 0;
  unsigned short Reserved1 = 4095;
  unsigned short SQO0 = 0;  // see GetSQO
  unsigned short SQO1 = 0;
  int DistnaceRangeUser = -1;  // range set by the user
  TSpanLocationInfo SpanBegin;
  TSpanLocationInfo SpanEnd;
  int IntFiber = 0;  // fibre inside the instrument, one-way time in 100 ps
  short Reserved2 = 0;
  TString Job;
  TString Group;
  unsigned int MeasurementDirection = 0;  // 0 or 1
  unsigned short LaserFreq = 0;
  unsigned int PonType = 0;             // 0 none, 1 splitters of known ratios, 2 splitters of unknown ratios
  unsigned int FirstSplitterRatio = 1;  // outputs
  unsigned int SecondSplitterRatio = 1;
  unsigned short ZeroCorrected = 0;       // 1: the zero of the receiver was corrected
  std::vector<int> LandmarksDTS;          // times of landmarks
  int DataSpacingUser = -1;               // spacing set by the user
  short DataPointsFiltered = 0;           // 1: the filtered levels are final, the raw trace is gone
  unsigned int FirstSplitterInRatio = 1;  // inputs
  unsigned int SecondSplitterInRatio = 1;

  TSorBlockQRTParameters();

  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v);

  bool IsEmpty() const override { return false; }
  int GetBlockType() const override { return btQRTParameters; }
  int GetBlockLastKnownRevisionNo() const override { return kLastKnownRevisionNo; }
  void Assign(const TSorBlock& other) override;
  void Assign(const TSorBlockQRTParameters& other) { *this = other; }
  void Read(TSorFile* file) override;
  void Write(TSorFile* file) override;
  void Damp(FILE* out) const override;

  // --- Counts and their arrays. Old contents are lost, new ones are 0. A count below 0, as a broken file may
  // hold, is kept for a copy and stands for no entries. ---
  void SetTGI(short n);
  void SetTVL(short n);
  void SetTMC(short n);
  void SetTNL(unsigned short n);
  void SetTNWL(unsigned short n);
  void ReNewMM(short n);  // n modes in their default state, whatever stood there

  // The associated files of a trace, which stand in the middle of the block: reads their number and their
  // paths, or reads and drops them. Nothing happens for a revision that has none. The form that keeps them
  // knows the texts of revisions below 207 only, and passes over the wide texts of later ones.
  void ReadAssociatedFilesPathsIfRequired(TSorFile* file);
  void SkipAssociatedFilesPathsIfRequired(TSorFile* file);

  // --- Flags ---
  bool isFast() const { return IsFlag(kFast); }  // fast measurement
  void SetFlagFast(int on) { SetFlag(kFast, on); }
  bool isFilter() const { return IsFlag(kFilter); }  // the trace is to be filtered, or is
  void SetFlagFilter(int on) { SetFlag(kFilter, on); }
  bool isHighRes() const { return IsFlag(kHighRes); }
  void SetFlagHighRes(int on) { SetFlag(kHighRes, on); }
  bool isLowPower() const { return IsFlag(kLowPower); }
  void SetFlagLowPower(int on) { SetFlag(kLowPower, on); }
  bool isDynFilter() const { return IsFlag(kDynFilter); }
  bool isAutoPrm() const { return IsFlag(kAutoPrm); }  // automatic parameters
  void SetFlagAutoPrm(int on) { SetFlag(kAutoPrm, on); }
  bool isLinData() const { return IsFlag(kLinData); }
  void SetFlagLinData(int on) { SetFlag(kLinData, on); }
  bool isTime() const { return IsFlag(kTime); }
  void SetFlagTime(int on) { SetFlag(kTime, on); }

  // --- Values on their scales. Setters store into the raw field, held at its bounds. ---
  DataType GetDataType() const;  // from `TYP`; a reflectometric level where it names nothing known
  bool isATP() const { return GetDataType() == dtTC; }
  double GetCT() const { return CT / 1000.0; }  // dB/km
  void SetCT(double v);
  double GetMC(int i) const;  // 0 outside the array
  void SetMC(double v, int i);
  double GetSQO(int i) const { return (i == 1 ? SQO1 : SQO0) / 100.0; }
  void SetSQO(double a, double b);
  double GetT2() const { return TEMP2 / 100.0 - 273.15; }  // degrees Celsius
  int isT2() const { return TEMP2; }                       // not 0 where it was measured
  int isVL() const { return VLFL; }
  void SetFlagVL(int v);
  // Losses of the two ways through the optical switch, in dB, and of both for any other i.
  double GetSW(int i) const;
  // Stores a loss in dB, for an i of 1 or 2. An i of 0 or 3 sets LaserAtt or Reserved1 instead.
  void SetSW(int i, double v);
  int GetSWdM() const;   // which way is stored negative: 1, 2, or 0 for none
  int GetSWdG() const;   // which way is stored positive: 1, 2, or 0 for none
  double GetdM() const;  // loss of that way, dB
  double GetdG() const;
  double GetFilterLevel() const;
  void SetFilterLevel(double v, int dynamic);
  double GetLF() const;  // a factor of 3 or more is stored as its logarithm
  void SetLF(double v);

  // --- Noise log: how the signal-to-noise ratio grew with the averages, in steps of a signed byte ---
  //
  // Ratio (0.001 dB) and averages after the first n steps. Gives 1 for a log that grew as no averaging can,
  // whose level is then that of the start, and 0 otherwise.
  int GetNL(unsigned short n, unsigned short& level, long& averages) const;
  // Appends the steps from the end of the log to a new state. A log without room for them stays as it is.
  void AddNL(unsigned short level, long averages);
  double GetSNR() const;  // at the end of the log, dB
  double GetNoisePeak() const {
    return kPeaksOverNoiseDb - GetSNR();
  }  // level that the peaks of the noise reach, dB

  // --- Level scale ---
  double GetMAX() const { return static_cast<double>(MaxMicroDb()) * 1e-06; }  // dB, negative
  float GetfMAX() const { return static_cast<float>(MaxMicroDb()) * 1e-06f; }
  void SetMAX(double v);  // dB; below -65.535 the units double
  double fZero() const { return ZERO / 65535.0; }
  // Factor of 1 to 4 by which levels below MAX are compressed. The field holds it less one, and that is what
  // the setter takes.
  int GetNegScale() const { return 1 + ((Flags >> kNegScaleShift) & kMaxNegScale); }
  void SetNegScale(int n);

  // 5 log10(x) for x of at least 1; too low by up to 0.0002 dB, and just above 4000 by up to 0.0008 dB.
  static double log5t(double x) { return reflyze::QuickLog(x); }
  static float flog5t(float x) { return static_cast<float>(reflyze::QuickLog(x)); }
  // 500000 log10(x) for x of at least 1.
  static int log500k(float x) { return reflyze::Log500k(x); }
  // k times 5 log10(|x|) with the sign of x, and straight through 0 between -2 and 2.
  static double Log5(double x, double k) { return reflyze::SignedLog5(x, k); }
  static float Log5(float x, float k) { return reflyze::SignedLog5(x, k); }
  // 10^(x / 5), in single precision for x of at least 0.
  static double poww(double x) { return reflyze::Pow5(x); }
  // Linear value of a level in dB, counted from MAX: positive for a level above it, negative for one below.
  // With `raw` a level below MAX is taken as it stands, otherwise it is expanded.
  double Log5ToLin(double level, int raw = 0) const;
  reflyze::LinearScale ToLinear() const { return {GetMAX(), GetNegScale()}; }  // the same, not raw
  float Log5ToLin(float level, int raw = 0) const;
  // The way back, to a compressed level of at most 0 dB.
  double LinToLog5(double v) const;
  float LinToLog5(float v) const;
  // Expands a compressed level.
  double NLogToLog(double v) const { return Expanded().LevelOf(v); }
  float NLogToLog(float v) const { return ExpandedF().LevelOf(v); }
  reflyze::Expansion<double> Expanded() const { return {GetMAX(), GetNegScale()}; }  // for many levels
  reflyze::Expansion<float> ExpandedF() const { return {GetfMAX(), GetNegScale()}; }
  float NLogToPLog(float v) const;  // expands it, and mirrors it above MAX
  // Linear value of a level with the zero offset of the instrument, 1 at 0 dB; a raw sample counts in -0.001
  // dB.
  double fPow5(double level) const;
  double fPow5(unsigned short raw) const;
  // Writes linear values back as the raw samples of `points`, one for each point. Points of more than one
  // scale factor are an assertion.
  void LinfToLog(float* lin, TSorBlockDataPoints& points) const;

 private:
  enum : int {
    kFast = 0x0001,
    kFilter = 0x0002,
    kHighRes = 0x0004,
    kLowPower = 0x0008,
    kDynFilter = 0x0010,
    kFilterLevelHalf = 0x0020,
    kFilterLevelFull = 0x0040,
    kAutoPrm = 0x0800,
    kNegScaleBits = 0x3000,
    kLinData = 0x4000,
    kTime = 0x8000
  };
  static constexpr int kNegScaleShift = 12;
  static constexpr int kMaxNegScale = 3;
  static constexpr int kUnknownTime = -1;

  bool IsFlag(int bit) const { return (Flags & bit) != 0; }
  void SetFlag(int bit, int on) { Flags = static_cast<short>(on != 0 ? Flags | bit : Flags & ~bit); }
  int MaxMicroDb() const { return Scale * -static_cast<int>(MAX); }
  void OnFLevelRead();
  void OnOldPonRead();
  void OnNewPonRead();
};

template <class Self, class Visitor>
void TSorBlockQRTParameters::Fields(Self& b, Visitor& v) {
  v.Id("BID", b.ID);
  v.Int("Flags", b.Flags);
  v.Int("dOwt0", b.dOwt0, 201);
  v.Int("dOwt1", b.dOwt1, 201);
  v.Int("ATP0", b.ATP0, 201);
  v.Int("LFPO", b.LFPO, 202);
  v.Count("TGI", b, b.TGI, [](auto& self, short n) { self.SetTGI(n); });
  v.Pairs("GIU", b.GIU.data(), "NPGI", b.NPGI.data(), reflyze::Listed(b.TGI, b.GIU, b.NPGI));
  v.Count("TMM", b, b.TMM, [](auto& self, short n) { self.ReNewMM(n); });
  v.List("modes", "mode", reflyze::Listed(b.TMM, b.modes), [&b](long i, auto& fields) {
    TMeasurementMode::Fields(b.modes[static_cast<size_t>(i)], fields, i == 0);
  });
  v.Int("MAX", b.MAX);
  v.Int("ZERO", b.ZERO);
  v.Count("TMC", b, b.TMC, [](auto& self, short n) { self.SetTMC(n); });
  v.Array("MC", b.MC.data(), reflyze::Listed(b.TMC, b.MC));
  v.Int("NT", b.NT);
  v.Int("CT", b.CT);
  v.Int("BT", b.BT);
  v.Count("TNL", b, b.TNL, [](auto& self, unsigned short n) { self.SetTNL(n); });
  v.Int("SNL", b.SNL);
  v.Int("NASF", b.NASF);
  v.Int("NLSF", b.NLSF);
  v.Pairs("NAVR", b.NAVR.data(), "SNR", b.SNR.data(), reflyze::Listed(b.TNL, b.NAVR, b.SNR));
  v.Text("COMM", b.COMM);
  v.Int("VLFL", b.VLFL, 203);
  v.Count(
      "TVL", b, b.TVL, [](auto& self, short n) { self.SetTVL(n); }, 203);
  v.Pairs("TypeEvent", b.TypeEvent.data(), "PosInPoint", b.PosInPoint.data(),
          reflyze::Listed(b.TVL, b.TypeEvent, b.PosInPoint), 203);
  v.Int("TEMP(K)", b.TEMP, 204);
  // The paths of other files are passed over in reading, and none are written.
  if constexpr (std::is_same<Visitor, reflyze::FieldReader>::value) {
    b.SkipAssociatedFilesPathsIfRequired(&v.file());
  } else {
    constexpr unsigned short kNoPaths = 0;
    v.Int("TNWL", kNoPaths, 205);
  }
  v.Int("FLevel*10", b.FLevel, 206);
  v.OnRead(b, [](auto& self) { self.OnFLevelRead(); });
  v.Text("TYP", b.TYP, 208);
  v.Int("LF", b.LF, 209);
  v.Int("Xol", b.Xol, 210);
  v.Int("PWM", b.PWM, 211);
  v.Group(
      "service", [&b](auto& fields) { TQRTServiceInfo::Fields(b.ServiceInfo, fields); }, 212);
  v.Int("LDTS", b.LDTS, 213);
  v.OnRead(b, [](auto& self, auto& reader) {
    if (!reader.Has(213)) self.LDTS = kUnknownTime;
  });
  v.Int("TEMP2", b.TEMP2, 214);
  v.Int("begLevel", b.begLevel, 214);
  v.Bytes("OriginData", b.OriginData, sizeof b.OriginData, 215);
  v.Count(
      "Scale", b, b.Scale,
      [](auto& self, short scale) {
        if (scale != 0) self.Scale = scale;
      },
      216);
  PonParameters::Fields(b.Pon, v);
  v.OnRead(b, [](auto& self, auto& reader) {
    if (reader.Has(217)) self.OnOldPonRead();
  });
  v.Int("Force", b.Force, 218);
  v.Int("LaserAtt", b.LaserAtt, 218);
  v.Int("SW1", b.SW1, 218);
  v.Int("SW2", b.SW2, 218);
  v.Int("Reserved1", b.Reserved1, 218);
  v.Int("SQO0", b.SQO0, 218);
  v.Int("SQO1", b.SQO1, 218);
  v.Int("DistnaceRangeUser", b.DistnaceRangeUser, 219);
  v.Group(
      "span begin", [&b](auto& fields) { TSpanLocationInfo::Fields(b.SpanBegin, fields); }, 219);
  v.Group(
      "span end", [&b](auto& fields) { TSpanLocationInfo::Fields(b.SpanEnd, fields); }, 219);
  v.Int("IntFiber", b.IntFiber, 220);
  v.Int("Reserved2", b.Reserved2, 221);
  PonParameters::Fields2(b.Pon, v);
  v.Text("Job", b.Job, 225);
  v.Text("Group", b.Group, 225);
  v.Count(
      "Measurement Direction", b, b.MeasurementDirection,
      [](auto& self, unsigned int n) { self.MeasurementDirection = n <= 1 ? n : 0; }, 225);
  v.Int("LaserFreq", b.LaserFreq, 226);
  v.Count(
      "pon type", b, b.PonType, [](auto& self, unsigned int n) { self.PonType = n <= 2 ? n : 0; }, 227);
  v.Int("first splitter ratio", b.FirstSplitterRatio, 227);
  v.Int("second splitter ratio", b.SecondSplitterRatio, 227);
  v.OnRead(b, [](auto& self, auto& reader) {
    if (reader.Has(227)) self.OnNewPonRead();
  });
  v.Int("ZeroCorrect", b.ZeroCorrected, 228);
  reflyze::CountedArray(v, "LandmarksDTS", b.LandmarksDTS, 229);
  v.Int("DataSpacingUser", b.DataSpacingUser, 230);
  v.Int("DataPointsFiltered", b.DataPointsFiltered, 231);
  v.Int("first splitter in ratio", b.FirstSplitterInRatio, 232);
  v.Int("second splitter in ratio", b.SecondSplitterInRatio, 232);
}

inline double TSorBlockQRTParameters::Log5ToLin(double level, int raw) const {
  return reflyze::LinearScale(GetMAX(), raw == 0 ? GetNegScale() : 1).LinOf(level);
}

inline float TSorBlockQRTParameters::Log5ToLin(float level, int raw) const {
  float db = level - GetfMAX();
  if (db < 0.0f && raw == 0) db *= static_cast<float>(GetNegScale());
  const float lin = db * reflyze::kStraightLinF;
  if (!(std::fabs(lin) > float(reflyze::kStraightUpTo))) return lin;
  const double wide = db;
  return static_cast<float>(wide >= 0.0 ? poww(wide) : -poww(-wide));
}

inline double TSorBlockQRTParameters::LinToLog5(double v) const {
  double db = Log5(v, 1.0);
  if (db < 0.0) db /= GetNegScale();
  const double level = GetMAX() + db;
  return level > 0.0 ? 0.0 : level;
}

inline float TSorBlockQRTParameters::LinToLog5(float v) const {
  float db = Log5(v, 1.0f);
  if (db < 0.0f) db /= static_cast<float>(GetNegScale());
  const float level = GetfMAX() + db;
  return level > 0.0f ? 0.0f : level;
}
