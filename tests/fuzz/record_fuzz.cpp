// SPDX-License-Identifier: Apache-2.0

// Records from any bytes, read in full and in part, listed, copied, written and read back. What could be read
// must survive a copy and a file.

#include <cstdio>

#include "sor/sorEmbData.h"
#include "tests/fuzz/fuzzing.h"

using fuzzing::Check;

namespace {

constexpr int kDeepestListed = 16;  // the program refuses records nested deeper

std::string TextOf(const TSorData& record) {
  char* text = nullptr;
  size_t size = 0;
  FILE* out = open_memstream(&text, &size);
  record.Damp(out, 0);
  std::fclose(out);
  const std::string result(text, size);
  std::free(text);
  return result;
}

// Whether this record, or one inside it, has several stretches of points. A copy and a file have only the
// first.
bool HasSeveralStretches(const TSorData& record) {
  if (record.DataPts->GetSubBlocksNum() != 1) return true;
  for (int i = 0; i < record.EmbData->GetTNED(); ++i) {
    const TSorData* inner = record.EmbData->GetEmbData(i)->GetRecord();
    if (inner != nullptr && HasSeveralStretches(*inner)) return true;
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  if (fuzzing::Overstates(bytes)) return 0;
  TSorData record;
  const bool usable = fuzzing::ReadRecord(record, bytes);
  TSorData minimal;
  fuzzing::Completes([&] {
    TSorFile file(bytes.data(), bytes.size());
    minimal.ReadMinimal(&file);
  });
  if (fuzzing::IsLarge(record) || fuzzing::IsLarge(minimal)) return 0;
  fuzzing::BytesOf(minimal);

  TSorData copy;
  copy.Assign(record);
  if (reflyze::NestingDepth(record) <= kDeepestListed && !HasSeveralStretches(record)) {
    Check(TextOf(copy) == TextOf(record));
  }
  const std::string written = fuzzing::BytesOf(record);
  Check(fuzzing::BytesOf(copy) == written);
  if (!usable || written.empty()) return 0;

  // The first reading may correct an offset or a scale. What was written after that stays.
  TSorData back, again;
  Check(fuzzing::ReadRecord(back, written));
  const std::string rewritten = fuzzing::BytesOf(back);
  Check(fuzzing::ReadRecord(again, rewritten) && fuzzing::BytesOf(again) == rewritten);
  return 0;
}
