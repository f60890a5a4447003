// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <iostream>
#include <new>

#include "cli/Commands.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "reflyze/version.h"

namespace reflyze::cli {

void DescribeProgram(CLI::App& app, Session& session) {
  app.name("reflyze");
  app.description("Reads, analyses and compares the traces of optical time-domain reflectometers.");
  app.require_subcommand(0, 1);
  app.add_flag("--version", session.showVersion, "Show the version of the analysis module");
  app.set_help_flag("-h,--help", "Show this help");
  app.add_option("--log", session.logName, "Log file, or - for standard error")
      ->type_name(kFileValue)
      ->check(InputName());
  app.add_option("--encoding", session.encoding,
                 "Of texts in records: auto (UTF-8 where they are valid, else ISO 8859-1), utf-8, iso-8859-1 "
                 "or another")
      ->type_name("NAME")
      ->check(TextEncoding())
      ->capture_default_str();
  app.fallthrough();
  for (const auto add : kCommands) add(app, session);
}

namespace {

const std::string kSeeHelp = " (see reflyze --help)";

// The global log belongs to a session and goes with it.
struct LogGuard {
  ~LogGuard() { LogFile = nullptr; }
};

int Run(CLI::App& app, int argc, const char* const* argv, Session& session) {
  DescribeProgram(app, session);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& help) {
    session.Print(app.help());
    return kDone;
  } catch (const CLI::ExtrasError& error) {
    const std::vector<std::string> extras = app.remaining();
    const bool noCommand = app.get_subcommands().empty() && !extras.empty() && extras[0][0] != '-';
    session.Warn((noCommand ? "\"" + extras[0] + "\" is no command" : error.what()) + kSeeHelp);
    return kUsage;
  } catch (const CLI::ParseError& error) {
    session.Warn(error.what() + kSeeHelp);
    return kUsage;
  }
  if (!session.logName.empty()) session.OpenLog(session.logName);
  if (session.showVersion) {
    session.Print("reflyze " + ModuleVersion() + "\n");
    return kDone;
  }
  if (!session.command) {
    session.Warn("no command is given" + kSeeHelp);
    return kUsage;
  }
  return session.command(session);
}

}  // namespace

int Main(int argc, const char* const* argv, std::istream& in, std::ostream& out, std::ostream& err) {
  const LogGuard logGuard;
  Session session(in, out, err);
  CLI::App app;
  try {
    return Run(app, argc, argv, session);
  } catch (const Error& error) {
    session.Warn(error.what());
    return StatusOf(error);
  } catch (const std::bad_alloc&) {
    session.Warn("an input asks for more memory than there is");
  } catch (const std::exception& error) {
    session.Warn(error.what());
  } catch (int) {
    session.Warn("an input holds a count or size that cannot be right");
  } catch (const char* text) {
    session.Warn(std::string("an input is damaged: ") + text);
  }
  return kUnreadable;
}

}  // namespace reflyze::cli

// The module's assertions end in the same handler, see util/assertion.h.
extern "C" __attribute__((visibility("default"))) void ReflyzeHostAssertion(const char* text,
                                                                            const char* file, int line) {
  reflyze::ThrowAssertion(text, file, line);
}
