#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "cli/JsonDump.h"
#include "cli/Options.h"
#include "cli/RecordFile.h"
#include "cli/Session.h"
#include "cli/Text.h"

namespace reflyze::cli {
namespace {

struct DumpOptions {
  std::string trace;
  bool noData = false;
  std::string format = "text";
};

// For a terminal: letters beyond ASCII as such, and no control character of a foreign text but the ends of
// lines, which the listing itself has.
std::string Printable(const char* bytes, size_t length) {
  std::string text(bytes, length);
  for (char& c : text) {
    const bool upperControl = (c & 0xE0) == 0x80;  // the second set of ISO 8859
    if (c != '\n' && c != '\t' && (IsControl(c) || upperControl)) c = '?';
  }
  return Utf8(text.data(), text.size());
}

std::string TextOfRecord(const LoadedRecord& loaded, bool noData) {
  char* buffer = nullptr;
  size_t size = 0;
  FILE* memory = open_memstream(&buffer, &size);
  if (memory == nullptr) throw std::bad_alloc();
  loaded.record->Damp(memory, noData ? 1 : 0);
  std::fclose(memory);
  const std::string text = Printable(buffer, size);
  std::free(buffer);
  return Format("// %s: %zu bytes, stream state %d, revision %hd \n", OneLine(loaded.name).c_str(),
                loaded.bytes.size(), loaded.state, loaded.record->Revision) +
         text;
}

int RunDump(Session& session, const DumpOptions& options) {
  const LoadedRecord loaded = LoadRecord(session, options.trace, NeedPoints::kNo);
  if (options.format == "json") {
    session.Print(JsonOfLoadedRecord(loaded, !options.noData).dump() + "\n");
  } else {
    session.Print(TextOfRecord(loaded, options.noData));
  }
  return kDone;
}

}  // namespace

void AddDumpCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<DumpOptions>();
  CLI::App* command = app.add_subcommand("dump", "Show every field of every block of a record");
  command->add_option("TRACE", options->trace, "SOR file, or - for standard input")
      ->required()
      ->check(InputName());
  command->add_flag("--no-data", options->noData, "Leave the samples out");
  command->add_option("--format", options->format, "text or json")
      ->check(CLI::IsMember({"text", "json"}))
      ->capture_default_str();
  command->callback([options, &session] {
    session.command = [options](Session& running) { return RunDump(running, *options); };
  });
}

}  // namespace reflyze::cli
