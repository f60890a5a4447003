#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

#include "cli/EventTable.h"
#include "cli/JsonDump.h"
#include "cli/JsonText.h"
#include "cli/Options.h"
#include "cli/RecordFile.h"
#include "cli/Session.h"
#include "cli/StoredBlocks.h"
#include "cli/Text.h"
#include "cli/UsableTrace.h"

namespace reflyze::cli {
namespace {

struct DumpOptions {
  std::string trace;
  bool noData = false;
  bool native = false;
  std::string format = "text";
};

// For a terminal: letters beyond ASCII as such, and no control character of a foreign text but the ends of
// lines and tabs, which the listing itself has. Texts stand a line each, so that each is read by itself.
std::string Printable(const char* bytes, size_t length) {
  std::string text;
  const char* const end = bytes + length;
  for (const char* from = bytes; from < end;) {
    const char* to = std::find_if(from, end, [](char c) { return c == '\n' || c == '\t'; });
    text += OneLine(Utf8(from, static_cast<size_t>(to - from)));
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

std::string TextOfRecord(const LoadedRecord& loaded, bool noData, bool native) {
  char* buffer = nullptr;
  size_t size = 0;
  FILE* memory = open_memstream(&buffer, &size);
  if (memory == nullptr) throw std::bad_alloc();
  if (native) {
    loaded.record->Damp(memory, noData ? 1 : 0);
  } else {
    DampStored(loaded, memory, noData);
  }
  std::fclose(memory);
  const std::string text = Printable(buffer, size);
  std::free(buffer);
  return Format("// %s: %zu bytes, stream state %d, revision %hd \n", ShownName(loaded.given).c_str(),
                loaded.bytes.size(), loaded.state, loaded.record->Revision) +
         text;
}

// What a reading derives from the samples stands among the data that the file brings along.
void DropDerivedData(TSorData& record) {
  TSorBlockEmbData& data = *record.EmbData;
  for (int i = data.GetTNED() - 1; i >= 0; --i) {
    TEmbData1E* embedded = data.GetEmbData(i);
    if (embedded == nullptr) continue;
    if (TSorData* inner = embedded->GetRecord()) DropDerivedData(*inner);
    if (!embedded->IsWritable()) data.DeleteData(i);
  }
}

int RunDump(Session& session, const DumpOptions& options) {
  LoadedRecord loaded = LoadRecord(session, options.trace, NeedPoints::kNo);
  if (StoredUserOffset(loaded) < 0)
    loaded.warnings.push_back("has its user offset negated; it and the times are shown as they are meant");
  if (!options.native) DropDerivedData(*loaded.record);
  if (options.format == "json") {
    session.Print(JsonText(JsonOfLoadedRecord(loaded, !options.noData, options.native)) + "\n");
  } else {
    session.Print(TextOfRecord(loaded, options.noData, options.native));
  }
  WarnOfFile(session, loaded);
  return kDone;
}

}  // namespace

void AddDumpCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<DumpOptions>();
  CLI::App* command = app.add_subcommand("dump", "Show every field of every block of a file");
  command->add_option("TRACE", options->trace, "SOR file, or - for standard input")
      ->required()
      ->check(InputName());
  command->add_flag("--no-data", options->noData, "Leave the samples out");
  command->add_flag("--native", options->native,
                    "Show every block that a record has in memory, also those that the file does not have");
  command->add_option("--format", options->format, "text or json")
      ->check(CLI::IsMember({"text", "json"}))
      ->capture_default_str();
  command->callback([options, &session] {
    session.command = [options](Session& running) { return RunDump(running, *options); };
  });
}

}  // namespace reflyze::cli
