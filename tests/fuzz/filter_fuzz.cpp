// Filters on random samples and acquisition parameters: nothing may be read or written outside its array,
// nothing may run without end, and the unfiltered trace comes back bit for bit.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "ref/refAutoNoise.h"
#include "sor/sorData.h"
#include "src/Filter.h"

namespace {

// Takes values from the front of the input; zeros once it is used up.
class Input {
 public:
  Input(const std::uint8_t* data, size_t size) : data_(data), size_(size) {}

  template <class T>
  T Take() {
    T value{};
    const size_t count = std::min(sizeof value, size_);
    std::memcpy(&value, data_, count);
    data_ += count;
    size_ -= count;
    return value;
  }
  size_t left() const { return size_; }

 private:
  const std::uint8_t* data_;
  size_t size_;
};

void FillParameters(Input& in, TSorData& record) {
  TSorBlockFixedParameters& fixed = *record.FxdParams;
  fixed.SetTPW(1);
  fixed.PWU[0] = in.Take<short>();
  fixed.DS[0] = in.Take<int>();
  fixed.GI = in.Take<std::uint8_t>() % 4 == 0 ? in.Take<int>() : 146800;
  fixed.AO = in.Take<short>();
  fixed.AR = in.Take<int>();
  fixed.NF = in.Take<unsigned short>();
  fixed.NFSF = in.Take<short>();
  record.GenParams->NW = in.Take<short>();
  record.GenParams->FT = in.Take<short>();
  TSorBlockQRTParameters& own = *record.QRTParams;
  own.MAX = in.Take<unsigned short>();
  own.SNL = in.Take<unsigned short>();
  own.IntFiber = in.Take<short>();
  own.FLevel = static_cast<short>(in.Take<std::uint8_t>() % 101);
  own.Flags = in.Take<short>();
  own.modes[0].BWU1 = in.Take<short>();
  own.modes[0].BWU2 = in.Take<short>();
}

// A trace of up to a few thousand points: a falling line with what the input adds to it, so that the scan
// meets more than noise.
void FillPoints(Input& in, TSorData& record) {
  const size_t count = 1 + std::min<size_t>(in.Take<unsigned short>() % 4096, 4095);
  const unsigned short start = in.Take<unsigned short>();
  const unsigned int slope = in.Take<std::uint8_t>();
  const unsigned int gain = in.Take<std::uint8_t>();
  std::vector<unsigned short>& samples = record.DataPts->GetSubBlock()->samples;
  samples.resize(count);
  for (size_t i = 0; i < count; ++i) {
    const unsigned int line = start + static_cast<unsigned int>(i) * slope / 16;
    samples[i] = static_cast<unsigned short>(std::min(line + in.Take<std::uint8_t>() * gain, 65535U));
  }
  record.FxdParams->NPPW[0] = static_cast<int>(count);
  record.UpdateChildrenWithNewDataType();
  record.CalculateValues();
  record.SetLinf();
}

void Check(bool holds) {
  if (!holds) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
  Input in(data, size);
  TSorData record;
  const std::uint8_t kinds = in.Take<std::uint8_t>();
  FillParameters(in, record);
  FillPoints(in, record);
  const std::vector<unsigned short> raw = record.DataPts->GetSubBlock()->samples;
  std::vector<short> widths(raw.size(), 1);
  TFEvent events[100];
  TSorFilter filter(&record);
  filter.result.events = events;
  filter.result.pointMap = widths.data();
  filter.SetFilter(7);
  Check(filter.result.count >= -1 && filter.result.count <= 200);
  for (const short width : widths) Check(width >= 0);
  TSorBlockKeyEvents1E event;
  event.ML0 = static_cast<int>(kinds) * 100;
  event.ML1 = event.ML0 + 1000;
  filter.GetKeyEventNoiseError(&event);
  if ((kinds & 1) != 0) filter.SetFilter(5);
  if ((kinds & 2) != 0) filter.SetFilter(1);
  filter.SetFilter(0);
  // The receiver's offset, once taken out, is out of the unfiltered trace too.
  Check(record.QRTParams->ZeroCorrected != 0 || record.DataPts->GetSubBlock()->samples == raw);
  return 0;
}
