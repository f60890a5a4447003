// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <type_traits>
#include <vector>

#include "sor/blocks/sorBlock.h"
#include "sor/fields/sorFields.h"
#include "util/assertion.h"
#include "util/convert.h"
#include "util/export.h"
#include "util/tarray.h"
#include "util/unset.h"

namespace reflyze {

class LevelSetter;

// The levels of a trace by point, in dB.
struct LevelView {
  static constexpr float kOutsideDb = -65.5f;  // the level of every point outside the trace

  const float* levels;
  size_t count;

  float operator[](long point) const {
    return static_cast<unsigned long>(point) < count ? levels[point] : kOutsideDb;
  }
  // Calls `work(levels)`, for work that reads only points from `first` up to but not including `end`. Where
  // all of them exist it gets the bare array, so that no point is checked again; else it gets this view.
  template <class Work>
  auto Over(long first, long end, Work work) const {
    return first >= 0 && end <= static_cast<long>(count) ? work(levels) : work(*this);
  }
};

// The sample of a level. The sign is not looked at. A positive level, as a temperature trace has it, becomes
// a negative number and leaves its low 16 bits in the sample. Nobody relies on that sample, and the cache of
// levels holds the level as given.
template <class T>
inline unsigned short SampleOf(T level, short scaleFactor) {
  constexpr int kLowestSample = 65535;
  const T sample = -level / static_cast<T>(scaleFactor) * static_cast<T>(1000000.0);
  if (sample >= T(0) && sample <= T(kLowestSample)) return static_cast<unsigned short>(TruncProven(sample));
  return LowBits16(std::min(TruncToInt(sample), kLowestSample));
}

}  // namespace reflyze

// How raw samples become levels.
enum DataType {
  dtRL = 0,  // reflectometric levels: negative dB
  dtAS = 1,  // the same
  dtTC = 2   // a temperature trace: positive values
};

// The samples of a trace that share one scale factor, as they stand on file.
class REFLYZE_API TSorBlockDataPoints1SF : public TSorBlock {
 public:
  // More points than this are no trace: reading them throws the integer 0.
  static constexpr int kMostPoints = 1000000;

  std::vector<unsigned short> samples;
  short SF = 1000;  // scale factor: units of a sample, 1e-6 dB

  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v) {
    int count = static_cast<int>(b.GetPointsNum());
    v.Int("TPS", count);
    v.Int("SF", b.SF);
    if constexpr (std::is_same<Visitor, reflyze::FieldReader>::value) {
      b.ReadSamples(v.file(), count);
    } else if constexpr (std::is_same<Visitor, reflyze::FieldWriter>::value) {
      b.WriteSamples(v.file());
    } else {
      v.Array("samples", b.samples.data(), count);
    }
  }

  int GetBlockType() const override { return btDataPoints1SF; }
  int GetBlockLastKnownRevisionNo() const override { return kLastKnownRevisionNo; }
  void Assign(const TSorBlock& other) override;
  void Assign(const TSorBlockDataPoints1SF& other) { *this = other; }
  void Read(TSorFile* file) override;
  void Write(TSorFile* file) override;
  void Damp(FILE* out) const override;

  long GetPointsNum() const { return static_cast<long>(samples.size()); }
  short GetScaleFactor() const { return SF; }
  void SetScaleFactor(short sf) { SF = sf; }
  // A point outside the samples is an assertion.
  unsigned short GetValue(long pointNum) const { return samples[Index(pointNum)]; }
  void SetValue(long pointNum, unsigned short raw) { samples[Index(pointNum)] = raw; }

  // Takes the scale factor of the source and its samples from `first` up to but not including `end`, each at
  // its own place: there are as many samples as in the source, and the new ones outside the range are 0.
  void AssignInRange(const TSorBlockDataPoints1SF& source, int first, int end);

 private:
  size_t Index(long pointNum) const {
    reflyze::Require(pointNum >= 0 && pointNum < GetPointsNum(), "pointNum < GetPointsNum()");
    return static_cast<size_t>(pointNum);
  }
  void ReadSamples(TSorFile& file, int count);
  void WriteSamples(TSorFile& file) const;
};

// The "DataPts" block (SR-4731): the trace itself, held twice. The raw samples are what goes to file; the
// level cache, one float a point, is what every search reads. A level set by a caller goes to both, and stays
// in the cache as it was given until the cache is rebuilt.
//
// The standard allows several scale factors in a trace. One is supported here, and asserted wherever a level
// is worked out.
class REFLYZE_API TSorBlockDataPoints : public TSorBlock {
 public:
  using SubBlocks = TOxArray<TSorBlockDataPoints1SF, TSorBlockDataPoints1SF*>;

  static constexpr float kOutsideDb = reflyze::LevelView::kOutsideDb;

  TSorBlockDataPoints();
  TSorBlockDataPoints(const TSorBlockDataPoints& other);
  TSorBlockDataPoints& operator=(const TSorBlockDataPoints& other);
  ~TSorBlockDataPoints() override;

  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v) {
    v.Id("BID", b.ID);
    int total = static_cast<int>(b.GetPointsNum());
    v.Int("TNDP", total);
    short count =
        std::is_same<Visitor, reflyze::FieldWriter>::value ? 1 : static_cast<short>(b.GetSubBlocksNum());
    v.Int("TSF", count);
    if constexpr (std::is_same<Visitor, reflyze::FieldReader>::value) b.NewSubBlocks(count < 1 ? 1 : count);
    v.List("sub-blocks", "scale factor", count < 1 ? 1 : count, [&b](long i, auto& each) {
      TSorBlockDataPoints1SF::Fields(*b.DPSF_->GetData(static_cast<int>(i)), each);
    });
  }

  bool IsEmpty() const override { return GetPointsNum() == 0; }
  int GetBlockType() const override { return btDataPoints; }
  int GetBlockLastKnownRevisionNo() const override { return kLastKnownRevisionNo; }
  // Copies the revision, the data type, the levels, and the first sub-block. The form of the base ignores a
  // block of another class.
  void Assign(const TSorBlock& other) override;
  void Assign(const TSorBlockDataPoints& other);
  // The part of a trace that lies from point `first` up to but not including `end`, as a trace of the same
  // length and time base: the other samples are 0. The source must not be null, which is an assertion.
  void AssignInRange(TSorBlockDataPoints* source, int first, int end);
  // A count that no trace can have throws the integer 0 and leaves no points. A null stream is an assertion.
  void Read(TSorFile* file) override;
  // The first sub-block goes to file, and no other.
  void Write(TSorFile* file) override;
  void Damp(FILE* out) const override;

  long GetPointsNum() const {
    reflyze::Require(DPSF_ != nullptr && DPSF_->GetData(0) != nullptr, "subblock");
    return DPSF_->GetData(0)->GetPointsNum();
  }
  // Gives the trace that many points, held at 0 and the most that a file can have; new ones are 0 dB.
  void SetPointsNum(long n);
  TSorBlockDataPoints1SF* GetSubBlock() const;
  int GetSubBlocksNum() const;
  // Of sub-block i, which must be 0 (an assertion). A new scale factor reaches the levels when the cache is
  // rebuilt.
  short GetPointsSubBlockScaleFactor(long i) const;
  void SetPointsSubBlockScaleFactor(long i, short sf);

  // The level of point n in dB; -65.5 outside the trace. The second argument has no effect.
  float numTofLevel(long n) const {
    return static_cast<unsigned long>(n) < levels_.size() ? levels_[static_cast<size_t>(n)] : kOutsideDb;
  }
  double numToLevel(long n, int = 0) const { return numTofLevel(n); }
  // All levels at once, for loops over many of them: as they stand, until points are set, assigned or read.
  reflyze::LevelView Levels() const { return {levels_.data(), levels_.size()}; }

  // Set the level of a point of the trace; any other point is an assertion. The sample takes what its 16 bits
  // can hold: a level too low for them becomes the lowest, a positive one loses its high bits.
  void SetLevel(long n, double level) { GenericSetLevel(n, level); }
  void SetfLevel(long n, float level) { GenericSetLevel(n, level); }
  void SetRawLevel(long n, unsigned short raw);

  // The lowest and the highest level from point `first` up to but not including `end`, with their first
  // points. An empty range stands for the point `first`. The second form also returns the mean level.
  void GetMinMax(double* min, double* max, long first, long end, long& minIndex, long& maxIndex) const;
  float GetMinMax(float* min, float* max, long first, long end, long& minIndex, long& maxIndex) const;
  // The highest alone: its first point.
  long GetHighest(long first, long end) const;
  double GetMinLevel() const;
  double GetMaxLevel() const;

  ::DataType GetDataType() const { return DataType; }
  // Rebuilds the cache for that type.
  void SetDataType(::DataType type);
  void RebuildWholeCache();

  // The level of point n from its sample, in the precision of T: of a trace in dB below its top, of a
  // temperature trace, of either.
  template <class T>
  T CalcReflectometricLevel(long n) const;
  template <class T>
  T CalcTemperatureLevel(long n) const;
  template <class T>
  T CalcLevel(long n, ::DataType type) const;

 private:
  template <class T>
  void GenericSetLevel(long n, T level);
  void RequirePoint(long n) const;
  const TSorBlockDataPoints1SF& OnlySubBlock() const;
  void NewSubBlocks(int count);

  reflyze::UnsetVector<float> levels_;

 public:
  ::DataType DataType = dtRL;  // set it through SetDataType

 private:
  friend class reflyze::LevelSetter;

  SubBlocks* DPSF_ = nullptr;  // owned, null in the constructor only
};

namespace reflyze {

// Sets the levels of a trace, as SetfLevel does, for those who set most of them. Meanwhile the trace keeps
// its points and its scale factor.
class LevelSetter {
 public:
  explicit LevelSetter(TSorBlockDataPoints& points) : points_(points) {
    if (points.GetSubBlocksNum() != 1) return;
    TSorBlockDataPoints1SF& only = *points.GetSubBlock();
    samples_ = only.samples.data();
    levels_ = points.levels_.data();
    count_ = std::min(only.samples.size(), points.levels_.size());
    scaleFactor_ = only.SF;
  }
  void operator()(long n, float level) const {
    if (static_cast<unsigned long>(n) >= count_) {
      points_.SetfLevel(n, level);
      return;
    }
    samples_[n] = SampleOf(level, scaleFactor_);
    levels_[n] = level;
  }

 private:
  TSorBlockDataPoints& points_;
  unsigned short* samples_ = nullptr;
  float* levels_ = nullptr;
  size_t count_ = 0;
  short scaleFactor_ = 0;
};

}  // namespace reflyze
