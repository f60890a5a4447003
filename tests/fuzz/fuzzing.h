// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the fuzz targets share. Whatever bytes a target gets, each piece of work must end in one of the ways
// in which broken input may end; else the target has a finding.

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

// Whether inputs that take long are passed over. The tests replay past findings, however long they take.
inline bool passOverLarge = true;

// Such records come from wrong counts, which other tests hold to their bounds. A fuzzer would spend most of
// its time on them.
inline bool IsLarge(const TSorData& record) {
  if (!passOverLarge) return false;
  constexpr int kPoints = 20000;
  constexpr int kEntries = 500;
  const TSorBlockQRTParameters& own = *record.QRTParams;
  if (record.DataPts->GetPointsNum() > kPoints) return true;
  if (std::max<int>({record.Map->blocks->GetSize(), record.KeyEvents->events->GetSize(),
                     record.QRTEvents->events->GetSize(), record.LnkParams->TNL, record.FxdParams->TPW,
                     own.TGI, own.TMM, own.TMC, own.TNL, own.TVL, record.EmbData->GetTNED()}) > kEntries) {
    return true;
  }
  for (int i = 0; i < record.EmbData->GetTNED(); ++i) {
    const TSorData* inside = record.EmbData->GetEmbData(i)->GetRecord();
    if (inside != nullptr && IsLarge(*inside)) return true;
  }
  return false;
}

struct FailedAssertion {};

// Whether the work came to its end. This catches the other ends that broken input may have. Anything else
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

// Whether a table or the trace announces many more entries than the record has bytes for, at the place to
// which the map leads.
inline bool MapOverstates(const std::string& bytes) {
  constexpr size_t kShortEntry = 16;  // bytes; lines of the map have less, events and landmarks more
  constexpr size_t kFew = 32;         // entries too many that are looked into
  const long long room = static_cast<long long>(bytes.size() / kShortEntry + kFew);
  const auto number = [&bytes](size_t place, auto value) {
    const std::string field = bytes.substr(std::min(bytes.size(), place), sizeof value);
    std::memcpy(&value, field.data(), field.size());
    return static_cast<long long>(value);
  };
  const bool named = bytes.compare(0, 3, "Map") == 0;
  if (number(named ? 10 : 6, short{0}) > room) return true;  // behind ID, revision and size of the map
  TSorBlockMap map;
  Completes([&] {
    TSorFile file(bytes.data(), bytes.size());
    map.ReadRN(&file, TSorBlock::kLastKnownRevisionNo);
  });
  if (map.blocks->GetSize() > room) return true;
  long long next = map.Size;
  for (int i = 0; i < map.blocks->GetSize(); ++i) {
    const TSorBlockMapBlockInfo& line = *map.blocks->GetData(i);
    if (line.Size <= 0) continue;
    const size_t start = static_cast<size_t>(next);
    next += line.Size;
    if (start >= bytes.size()) return false;
    const std::string id = line.ID.c_str();
    const size_t fields =
        start + (bytes.compare(start, id.size() + 1, id.c_str(), id.size() + 1) == 0 ? id.size() + 1 : 0);
    if (id == "KeyEvents" || id == "QRTEvents" || id == "LnkParams") {
      if (number(fields, short{0}) > room) return true;
    } else if (id == "DataPts") {
      constexpr size_t kPlaceOfFirst = 6;  // behind the number of all points and that of stretches
      const long long most = static_cast<long long>(bytes.size());
      if (number(fields, int{0}) > most || number(fields + kPlaceOfFirst, int{0}) > most) return true;
    }
  }
  return false;
}

// The same for a record and those inside it. They are read within bounds that tests hold the program to, but
// each takes the time of a hundred others, and their entries are all alike.
inline bool Overstates(const std::string& bytes) {
  if (!passOverLarge) return false;
  if (MapOverstates(bytes)) return true;
  const std::string id("SOR", 4);
  constexpr size_t kSizeBytes = 4;  // between the ID and the record
  for (size_t at = bytes.find(id); at != std::string::npos; at = bytes.find(id, at + 1)) {
    const size_t inside = at + id.size() + kSizeBytes;
    if (inside < bytes.size() && MapOverstates(bytes.substr(inside))) return true;
  }
  return false;
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

// A record that was worked on can be stored, and is read back as it was.
inline void CheckStorable(TSorData& record) {
  const std::string bytes = BytesOf(record);
  TSorData back;
  Check(!bytes.empty() && ReadRecord(back, bytes));
  Check(back.KeyEvents->events->GetSize() == record.KeyEvents->events->GetSize());
  Check(back.DataPts->GetPointsNum() == record.DataPts->GetPointsNum());
}

// A record of random acquisition parameters and up to a few thousand points: a falling line and what the
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
