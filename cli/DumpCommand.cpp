#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "cli/JsonDump.h"
#include "cli/RecordFile.h"
#include "cli/Session.h"

namespace reflyze::cli {
namespace {

struct DumpOptions {
  std::string trace;
  bool noData = false;
  std::string format = "text";
};

std::string TextOfRecord(const LoadedRecord& loaded, bool noData) {
  char* buffer = nullptr;
  size_t size = 0;
  FILE* memory = open_memstream(&buffer, &size);
  if (memory == nullptr) throw std::bad_alloc();
  std::fprintf(memory, "// %s: %zu bytes, stream state %d, revision %hd \n", loaded.name.c_str(),
               loaded.bytes.size(), loaded.state, loaded.record->Revision);
  loaded.record->Damp(memory, noData ? 1 : 0);
  std::fclose(memory);
  std::string text(buffer, size);
  std::free(buffer);
  return text;
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
  command->add_option("TRACE", options->trace, "SOR file, or - for standard input")->required();
  command->add_flag("--no-data", options->noData, "Leave the samples out");
  command->add_option("--format", options->format, "text or json")
      ->check(CLI::IsMember({"text", "json"}))
      ->capture_default_str();
  command->callback([options, &session] {
    session.command = [options](Session& running) { return RunDump(running, *options); };
  });
}

}  // namespace reflyze::cli
