// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <utility>

#include "lib/LoadedRecord.h"
#include "lib/StoredBlocks.h"
#include "reflyze/report.h"
#include "report/JsonDump.h"
#include "report/JsonText.h"

namespace reflyze {
namespace {

// Makes a text safe for a terminal. Letters beyond ASCII stay. Control characters go, except line ends and
// tabs, which the listing itself has. Each line is a text of its own, and its encoding is told from it alone.
std::string Printable(const TextEncoding& texts, const char* bytes, size_t length) {
  std::string text;
  const char* const end = bytes + length;
  for (const char* from = bytes; from < end;) {
    const char* to = std::find_if(from, end, [](char c) { return c == '\n' || c == '\t'; });
    text += OneLine(texts.Utf8(from, static_cast<size_t>(to - from)));
    if (to < end) text += *to;
    from = to + 1;
  }
  return text;
}

// The blocks that the file has, in the order in which a whole record is listed.
void DampStored(const LoadedRecord& loaded, FILE* out, bool noData) {
  const TSorData& record = *loaded.record;
  record.Map->Damp(out);
  const std::pair<const char*, const TSorBlock*> blocks[] = {
      {"GenParams", record.GenParams},   {"SupParams", record.SupParams}, {"FxdParams", record.FxdParams},
      {"KeyEvents", record.KeyEvents},   {"LnkParams", record.LnkParams}, {"RFTSParams", record.RFTSParams},
      {"RFTSEvents", record.RFTSEvents}, {"EmbData", record.EmbData},     {"QRTEvents", record.QRTEvents},
      {"QRTParams", record.QRTParams},   {"DataPts", record.DataPts}};
  for (const auto& [id, block] : blocks) {
    if (Stores(loaded, id) && !(noData && block == record.DataPts)) block->Damp(out);
  }
  if (noData) return;
  for (int i = 0; i < record.SpecialCount; ++i) record.Special[i]->Damp(out);
  if (Stores(loaded, "Cksum")) record.Cksum->Damp(out);
}

std::string TextOfRecord(const LoadedRecord& loaded, const DumpOptions& options) {
  char* buffer = nullptr;
  size_t size = 0;
  FILE* memory = open_memstream(&buffer, &size);
  if (memory == nullptr) throw std::bad_alloc();
  if (options.native) {
    loaded.record->Damp(memory, options.samples ? 0 : 1);
  } else {
    DampStored(loaded, memory, !options.samples);
  }
  std::fclose(memory);
  const std::string text = Printable(loaded.texts, buffer, size);
  std::free(buffer);
  return Format("// %s: %zu bytes, stream state %d, revision %hd \n", ShownName(loaded.given).c_str(),
                loaded.bytes.size(), loaded.state, loaded.record->Revision) +
         text;
}

// The listing shows what a reading derives from the samples among the data of the file.
void DropDerivedData(TSorData& record) {
  TSorBlockEmbData& data = *record.EmbData;
  for (int i = data.GetTNED() - 1; i >= 0; --i) {
    TEmbData1E* embedded = data.GetEmbData(i);
    if (embedded == nullptr) continue;
    if (TSorData* inner = embedded->GetRecord()) DropDerivedData(*inner);
    if (!embedded->IsWritable()) data.DeleteData(i);
  }
}

std::vector<std::string> TextsOf(const std::vector<Warning>& warnings) {
  std::vector<std::string> texts;
  texts.reserve(warnings.size());
  for (const Warning& warning : warnings) texts.push_back(warning.text);
  return texts;
}

// The record as its file has it. One that was made here has no file yet.
LoadedRecord ToList(const Trace& trace, const DumpOptions& options) {
  const LoadedRecord& loaded = trace.Loaded();
  LoadedRecord listed;
  if (loaded.bytes.empty()) {
    const std::string bytes = trace.Bytes();
    listed = ReadRecord(loaded.given, {bytes.begin(), bytes.end()}, loaded.texts);
  } else {
    listed = CopyOfLoaded(loaded);
  }
  if (options.native) {
    MakeLinearTrace(listed);
  } else {
    DropDerivedData(*listed.record);
  }
  listed.warnings = TextsOf(DumpWarnings(trace));
  return listed;
}

}  // namespace

std::vector<Warning> DumpWarnings(const Trace& trace) {
  std::vector<Warning> warnings = trace.Warnings();
  const LoadedRecord& loaded = trace.Loaded();
  if (StoredUserOffset(loaded) < 0) {
    warnings.push_back(
        {loaded.name, "has its user offset negated; it and the times are shown as they are meant"});
  }
  return warnings;
}

std::string DumpText(const Trace& trace, const DumpOptions& options) {
  return TextOfRecord(ToList(trace, options), options);
}

std::string DumpJson(const Trace& trace, const DumpOptions& options) {
  return JsonText(JsonOfLoadedRecord(ToList(trace, options), options)) + "\n";
}

}  // namespace reflyze
