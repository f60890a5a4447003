#pragma once

// What the fuzz targets share. Whatever bytes a target gets, each piece of work ends well, in one of the ways
// in which broken input may end, or the target has a finding.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "sor/sorData.h"
#include "util/assertion.h"

namespace fuzzing {

// Takes values from the front of the input; zeros once it is used up.
class Input {
 public:
  Input(const std::uint8_t* data, size_t size) : data_(data), size_(size) {}

  template <class T>
  T Take() {
    T value{};
    const size_t count = std::min(sizeof value, size_);
    std::memcpy(&value, data_, count);
    Skip(count);
    return value;
  }
  std::string TakeBytes(size_t most) {
    const std::string bytes(reinterpret_cast<const char*>(data_), std::min(most, size_));
    Skip(bytes.size());
    return bytes;
  }
  size_t left() const { return size_; }

 private:
  void Skip(size_t count) {
    data_ += count;
    size_ -= count;
  }

  const std::uint8_t* data_;
  size_t size_;
};

inline void Check(bool holds, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
  if (holds) return;
  std::fprintf(stderr, "%s:%d: does not hold\n", file, line);
  std::abort();
}

// Such records come from counts that lie, which other tests hold to their bounds; a fuzzer would spend most
// of its time on them.
inline bool IsLarge(TSorData& record) { return record.GetSize() > 100000; }

struct FailedAssertion {};

// Whether the work came to its end. The other ends that broken input may have are taken here; anything else
// goes on to the fuzzer.
template <class Work>
bool Completes(Work&& work) {
  reflyze::SetAssertionHandler([](const char*, const char*, int) { throw FailedAssertion(); });
  try {
    work();
    return true;
  } catch (const FailedAssertion&) {
  } catch (int) {
  } catch (const char*) {
  }
  return false;
}

// Whether a table or the trace is said to have more entries than the record has bytes. Such records are read
// within bounds that tests hold the program to, but each costs the time of a hundred others and the entries
// are all alike.
inline bool Overstates(const std::string& bytes) {
  const auto number = [&bytes](size_t place, size_t width) {
    std::uint32_t value = 0;
    const std::string field = bytes.substr(std::min(bytes.size(), place), width);
    std::memcpy(&value, field.data(), field.size());
    return value;
  };
  const auto anywhere = [&](const char* block, auto&& lies) {
    const std::string id(block, std::strlen(block) + 1);
    for (size_t at = bytes.find(id); at != std::string::npos; at = bytes.find(id, at + 1)) {
      if (lies(at + id.size())) return true;
    }
    return false;
  };
  const auto tooMany = [&](size_t place) { return number(place, 2) > bytes.size(); };
  return anywhere("Map", [&](size_t place) { return tooMany(place + 6); }) ||
         anywhere("KeyEvents", tooMany) || anywhere("LnkParams", tooMany) || anywhere("QRTEvents", tooMany) ||
         // The 1 is the number of stretches, and tells the block from its line in the map.
         anywhere("DataPts", [&](size_t place) {
           return number(place + 4, 2) == 1 && number(place + 6, 4) > bytes.size();
         });
}

// Whether the bytes are a record that a host would work with.
inline bool ReadRecord(TSorData& record, const std::string& bytes) {
  return Completes([&] {
    TSorFile file(bytes.data(), bytes.size());
    record.Read(&file);
    if (file.state != sfOk && file.state != sfEndOfData) throw file.state;
  });
}

inline std::string BytesOf(TSorData& record) {
  TSorFile memory(nullptr, "mw");
  record.Write(&memory);
  return memory.state == sfOk ? std::string(memory.GetData(), memory.GetDataSize()) : "";
}

// A record that was worked on can be stored and is read back as it was.
inline void CheckStorable(TSorData& record) {
  const std::string bytes = BytesOf(record);
  TSorData back;
  Check(!bytes.empty() && ReadRecord(back, bytes));
  Check(back.KeyEvents->events->GetSize() == record.KeyEvents->events->GetSize());
  Check(back.DataPts->GetPointsNum() == record.DataPts->GetPointsNum());
}

// A record of random acquisition parameters and up to a few thousand points: a falling line with what the
// input adds to it, so that searches meet more than noise.
inline void FillRecord(Input& in, TSorData& record) {
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
  fixed.NPPW[0] = static_cast<int>(count);
  record.UpdateChildrenWithNewDataType();
  record.CalculateValues();
  record.SetLinf();
}

}  // namespace fuzzing
