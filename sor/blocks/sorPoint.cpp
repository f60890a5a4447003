// SPDX-License-Identifier: Apache-2.0
#include "sor/blocks/sorPoint.h"

#include <algorithm>
#include <memory>

#include "sor/fields/sorDamp.h"
#include "sor/stream/sorFile.h"
#include "util/blockSearch.h"
#include "util/convert.h"

using reflyze::Require;
using reflyze::SampleOf;

namespace {

constexpr bool kHostIsLittleEndian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

// Samples go to and from file in one piece; only a host of the other byte order has to turn each of them
// round.
std::vector<unsigned short> InFileOrder(std::vector<unsigned short> samples) {
  for (unsigned short& sample : samples) sample = static_cast<unsigned short>(sample << 8 | sample >> 8);
  return samples;
}

// The level of a sample of 1e-6 dB times the scale factor. Analysis depends on the last bit of it: the order
// of the two products is part of the scale.
template <class T>
T LevelOf(T signedSample, T scaleFactor) {
  return signedSample * scaleFactor * static_cast<T>(1e-06);
}

// The lowest and highest of the levels in a range, each with its first point; `visit` sees every level.
template <class T, class Level, class Visit>
void FindMinMax(const Level& level, long first, long end, T* min, T* max, long& minIndex, long& maxIndex,
                const Visit& visit) {
  *min = *max = level(first);
  minIndex = maxIndex = first;
  visit(*min);
  for (long n = first + 1; n < end; ++n) {
    const T at = level(n);
    if (at < *min) {
      *min = at;
      minIndex = n;
    }
    if (at > *max) {
      *max = at;
      maxIndex = n;
    }
    visit(at);
  }
}

// The lowest of some levels. Of 0 and -0 the first counts, of a first level that is no number that.
float LowestOf(const float* levels, long count) {
  // Searched side by side. Of fewer lanes compilers make scalars, which takes three times as long.
  constexpr long kLanes = 64;
  float lanes[kLanes];
  std::fill(lanes, lanes + kLanes, levels[0]);
  long n = 0;
  for (; n + kLanes <= count; n += kLanes) {
    for (long k = 0; k < kLanes; ++k) lanes[k] = levels[n + k] < lanes[k] ? levels[n + k] : lanes[k];
  }
  for (; n < count; ++n) lanes[0] = std::min(lanes[0], levels[n]);
  const float lowest = *std::min_element(lanes, lanes + kLanes);
  return lowest == 0.0f ? *std::find(levels, levels + count, 0.0f) : lowest;
}

}  // namespace

// --- One sub-block ---

void TSorBlockDataPoints1SF::Assign(const TSorBlock& other) {
  if (const auto* same = dynamic_cast<const TSorBlockDataPoints1SF*>(&other)) Assign(*same);
}

void TSorBlockDataPoints1SF::Read(TSorFile* file) {
  reflyze::FieldReader reader(*file, RevisionNo);
  Fields(*this, reader);
}

void TSorBlockDataPoints1SF::Write(TSorFile* file) {
  reflyze::FieldWriter writer(*file, RevisionNo);
  Fields(static_cast<const TSorBlockDataPoints1SF&>(*this), writer);
}

void TSorBlockDataPoints1SF::Damp(FILE* out) const {
  reflyze::FieldDumper dumper(out);
  Fields(*this, dumper);
}

// All samples in one read. In a file that ends before them, the points that are missing stand at 0 dB.
void TSorBlockDataPoints1SF::ReadSamples(TSorFile& file, int count) {
  samples.clear();
  if (count < 0 || count > kMostPoints) throw 0;
  samples.resize(static_cast<size_t>(count));
  file.Read(reinterpret_cast<char*>(samples.data()), samples.size() * sizeof(unsigned short));
  if (!kHostIsLittleEndian) samples = InFileOrder(std::move(samples));
}

void TSorBlockDataPoints1SF::WriteSamples(TSorFile& file) const {
  if (samples.empty()) return;
  const unsigned long bytes = samples.size() * sizeof(unsigned short);
  if (kHostIsLittleEndian) {
    file.WriteBuf(reinterpret_cast<const char*>(samples.data()), bytes);
  } else {
    file.WriteBuf(reinterpret_cast<const char*>(InFileOrder(samples).data()), bytes);
  }
}

void TSorBlockDataPoints1SF::AssignInRange(const TSorBlockDataPoints1SF& source, int first, int end) {
  const int count = static_cast<int>(source.GetPointsNum());
  end = std::clamp(end, 0, count);
  first = std::clamp(first, 0, end);
  SF = source.SF;
  samples.resize(source.samples.size());
  std::copy(source.samples.begin() + first, source.samples.begin() + end, samples.begin() + first);
}

// --- The block ---

TSorBlockDataPoints::TSorBlockDataPoints() {
  ID = GetBlockID(btDataPoints);
  NewSubBlocks(1);
}

TSorBlockDataPoints::TSorBlockDataPoints(const TSorBlockDataPoints& other) : TSorBlockDataPoints() {
  Assign(other);
}

TSorBlockDataPoints& TSorBlockDataPoints::operator=(const TSorBlockDataPoints& other) {
  Assign(other);
  return *this;
}

TSorBlockDataPoints::~TSorBlockDataPoints() { delete DPSF_; }

void TSorBlockDataPoints::Assign(const TSorBlock& other) {
  if (const auto* same = dynamic_cast<const TSorBlockDataPoints*>(&other)) Assign(*same);
}

void TSorBlockDataPoints::Assign(const TSorBlockDataPoints& other) {
  if (this == &other) return;
  RevisionNo = other.RevisionNo;
  DataType = other.DataType;
  NewSubBlocks(1);
  if (other.DPSF_->GetData(0) != nullptr) DPSF_->GetData(0)->Assign(*other.DPSF_->GetData(0));
  levels_ = other.levels_;
}

void TSorBlockDataPoints::AssignInRange(TSorBlockDataPoints* source, int first, int end) {
  Require(source != nullptr, "DP");
  if (source == this) return;
  RevisionNo = source->RevisionNo;
  DataType = source->DataType;
  NewSubBlocks(1);
  DPSF_->GetData(0)->AssignInRange(*source->GetSubBlock(), first, end);
  RebuildWholeCache();
}

void TSorBlockDataPoints::Read(TSorFile* file) {
  Require(file != nullptr, "file");
  if (!CanRead(file)) return;
  reflyze::FieldReader reader(*file, RevisionNo);
  try {
    Fields(*this, reader);
  } catch (...) {
    NewSubBlocks(1);
    levels_.clear();
    throw;
  }
  RebuildWholeCache();
}

void TSorBlockDataPoints::Write(TSorFile* file) {
  reflyze::FieldWriter writer(*file, RevisionNo);
  Fields(static_cast<const TSorBlockDataPoints&>(*this), writer);
}

void TSorBlockDataPoints::Damp(FILE* out) const {
  reflyze::DumpHeading(out, "DataPoints");
  reflyze::FieldDumper dumper(out);
  Fields(*this, dumper);
}

// Empty sub-blocks in place of those that are there. What a file announces beyond its end stays empty.
void TSorBlockDataPoints::NewSubBlocks(int count) {
  auto subBlocks = std::make_unique<SubBlocks>(count);
  for (int i = 0; i < count; ++i) subBlocks->SetData(new TSorBlockDataPoints1SF(), i);
  delete DPSF_;
  DPSF_ = subBlocks.release();
}

void TSorBlockDataPoints::SetPointsNum(long n) {
  const auto count =
      static_cast<size_t>(std::clamp(n, 0L, static_cast<long>(TSorBlockDataPoints1SF::kMostPoints)));
  GetSubBlock()->samples.resize(count);
  levels_.resize(count, 0.0f);
}

TSorBlockDataPoints1SF* TSorBlockDataPoints::GetSubBlock() const {
  Require(DPSF_ != nullptr, "DPSF");
  TSorBlockDataPoints1SF* oneScalePoints = DPSF_->GetData(0);
  Require(oneScalePoints != nullptr, "oneScalePoints");
  return oneScalePoints;
}

int TSorBlockDataPoints::GetSubBlocksNum() const {
  Require(DPSF_ != nullptr, "DPSF");
  return DPSF_->GetSize();
}

short TSorBlockDataPoints::GetPointsSubBlockScaleFactor(long subBlockIndex) const {
  Require(subBlockIndex == 0, "subBlockIndex == 0 && \"Only one subblock is supported\"");
  return GetSubBlock()->GetScaleFactor();
}

void TSorBlockDataPoints::SetPointsSubBlockScaleFactor(long subBlockIndex, short sf) {
  Require(subBlockIndex == 0, "subBlockIndex == 0 && \"Only one subblock is supported\"");
  GetSubBlock()->SetScaleFactor(sf);
}

void TSorBlockDataPoints::RequirePoint(long n) const {
  Require(n >= 0 && n < GetPointsNum(),
          "( (num >= 0) && (num < GetPointsNum()) ) && \"Point index out of bounds\"");
}

const TSorBlockDataPoints1SF& TSorBlockDataPoints::OnlySubBlock() const {
  Require(GetSubBlocksNum() == 1, "GetSubBlocksNum() == 1");
  const TSorBlockDataPoints1SF* only = DPSF_->GetData(0);
  Require(only != nullptr, "DPE");
  return *only;
}

// --- Samples to levels ---

template <class T>
T TSorBlockDataPoints::CalcReflectometricLevel(long n) const {
  const TSorBlockDataPoints1SF& only = OnlySubBlock();
  Require(n >= 0 && n < only.GetPointsNum(), "num >= 0 && num < DPE->GetPointsNum()");
  return LevelOf(-static_cast<T>(only.GetValue(n)), static_cast<T>(only.SF));
}

template <class T>
T TSorBlockDataPoints::CalcTemperatureLevel(long n) const {
  const TSorBlockDataPoints1SF& only = OnlySubBlock();
  Require(n >= 0 && n < only.GetPointsNum(), "num >= 0 && num < DPE->GetPointsNum()");
  return LevelOf(static_cast<T>(only.GetValue(n)), static_cast<T>(only.SF));
}

template <class T>
T TSorBlockDataPoints::CalcLevel(long n, ::DataType type) const {
  Require(GetSubBlocksNum() == 1, "GetSubBlocksNum() == 1");
  Require(n >= 0 && n < GetPointsNum(), "num >= 0 && num < GetPointsNum()");
  return type == dtTC ? CalcTemperatureLevel<T>(n) : CalcReflectometricLevel<T>(n);
}

template float TSorBlockDataPoints::CalcReflectometricLevel<float>(long) const;
template float TSorBlockDataPoints::CalcTemperatureLevel<float>(long) const;
template float TSorBlockDataPoints::CalcLevel<float>(long, ::DataType) const;

void TSorBlockDataPoints::SetDataType(::DataType type) {
  DataType = type;
  RebuildWholeCache();
}

// The same as the level of each point in turn, in one pass without the checks.
void TSorBlockDataPoints::RebuildWholeCache() {
  if (GetPointsNum() == 0 || GetSubBlocksNum() != 1) levels_.clear();
  if (GetPointsNum() == 0) return;
  const std::vector<unsigned short>& samples = OnlySubBlock().samples;
  const float scaleFactor = OnlySubBlock().SF;
  const float sign = DataType == dtTC ? 1.0f : -1.0f;
  const size_t count = samples.size();
  levels_.resize(count);
  float* levels = levels_.data();
  for (size_t i = 0; i < count; ++i) levels[i] = LevelOf(sign * samples[i], scaleFactor);
}

// --- Levels to samples ---

void TSorBlockDataPoints::SetRawLevel(long n, unsigned short raw) {
  RequirePoint(n);
  GetSubBlock()->SetValue(n, raw);
  const float level = CalcLevel<float>(n, DataType);
  if (static_cast<size_t>(n) < levels_.size()) levels_[static_cast<size_t>(n)] = level;
}

// The filters set every level of a trace, so the usual case goes first: one sub-block, and a point inside.
// For any other, the checks below say what is wrong.
template <class T>
void TSorBlockDataPoints::GenericSetLevel(long n, T level) {
  TSorBlockDataPoints1SF* only = DPSF_ != nullptr && DPSF_->GetSize() == 1 ? DPSF_->GetData(0) : nullptr;
  const auto at = static_cast<size_t>(n);
  if (only == nullptr || at >= only->samples.size()) {
    RequirePoint(n);
    OnlySubBlock();
    return;
  }
  only->samples[at] = SampleOf(level, only->SF);
  // A caller that has sized the samples itself may not have rebuilt the cache yet.
  if (at < levels_.size()) levels_[at] = static_cast<float>(level);
}

template void TSorBlockDataPoints::GenericSetLevel<double>(long, double);
template void TSorBlockDataPoints::GenericSetLevel<float>(long, float);

// --- Ranges of levels ---

void TSorBlockDataPoints::GetMinMax(double* min, double* max, long first, long end, long& minIndex,
                                    long& maxIndex) const {
  FindMinMax([levels = Levels()](long n) -> double { return levels[n]; }, first, end, min, max, minIndex,
             maxIndex, [](double) {});
}

float TSorBlockDataPoints::GetMinMax(float* min, float* max, long first, long end, long& minIndex,
                                     long& maxIndex) const {
  double sum = 0.0;
  FindMinMax([levels = Levels()](long n) { return levels[n]; }, first, end, min, max, minIndex, maxIndex,
             [&sum](float level) { sum += level; });
  return static_cast<float>(first < end ? sum / static_cast<double>(end - first) : sum);
}

long TSorBlockDataPoints::GetHighest(long first, long end) const {
  return Levels().Over(first, std::max(first + 1, end), [=](auto levels) {
    long highest = first;
    for (long n = first + 1; n < end; ++n) {
      const float highestDb = levels[highest];
      n = reflyze::FirstThatPasses(n, end, [=](long i) { return levels[i] > highestDb; });
      if (n < end) highest = n;
    }
    return highest;
  });
}

double TSorBlockDataPoints::GetMinLevel() const {
  const long points = GetPointsNum();
  if (points > 0 && static_cast<size_t>(points) <= levels_.size()) return LowestOf(levels_.data(), points);
  double min, max;
  long minIndex, maxIndex;
  GetMinMax(&min, &max, 0, GetPointsNum(), minIndex, maxIndex);
  return min;
}

double TSorBlockDataPoints::GetMaxLevel() const {
  double min, max;
  long minIndex, maxIndex;
  GetMinMax(&min, &max, 0, GetPointsNum(), minIndex, maxIndex);
  return max;
}
