// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "cli/Commands.h"
#include "cli/LoadBeside.h"
#include "cli/Session.h"

namespace reflyze::cli {
namespace {

// What Python runs: the package's own command, or a line that says what is missing.
constexpr const char* kRun = R"(import sys
try:
    from reflyze import fleet
except ImportError as error:
    print("reflyze: the Python package is not there (Debian package python3-reflyze):", error, file=sys.stderr)
    sys.exit(3)
from reflyze._fleet_main import main
sys.exit(main())
)";

// A program that was built, and not installed, has the package beside it.
void ShowPackageBeside() {
  const std::string beside = FolderOfProgram() + "/python";
  if (access((beside + "/reflyze").c_str(), R_OK) != 0) return;
  const char* own = std::getenv("PYTHONPATH");
  setenv("PYTHONPATH", (own == nullptr || *own == 0 ? beside : std::string(own) + ":" + beside).c_str(), 1);
}

// The work is that of the package; this process becomes it.
int RunFleet(Session& session, const std::vector<std::string>& given) {
  const char* const named = std::getenv("REFLYZE_PYTHON");
  std::vector<std::string> words = {named == nullptr ? "python3" : named, "-c", kRun};
  words.insert(words.end(), given.begin(), given.end());
  if (session.encoding != "auto") words.insert(words.end(), {"--encoding", session.encoding});
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  ShowPackageBeside();
#ifdef __EMSCRIPTEN__  // where there are no other programs
  errno = ENOSYS;
#else
  execvp(arguments[0], arguments.data());
#endif
  throw Error(ErrorKind::kUnreadable, words[0],
              std::string(std::strerror(errno)) + "; work on archives needs Python and its package reflyze");
}

}  // namespace

void AddFleetCommand(CLI::App& app, Session& session) {
  CLI::App* command = app.add_subcommand(
      "fleet", "Work on archives of traces: fleet analyse, compare, merge or judge, each with its --help");
  command->prefix_command();
  command->fallthrough(false);
  command->callback([command, &session] {
    session.command = [given = command->remaining()](Session& running) { return RunFleet(running, given); };
  });
}

}  // namespace reflyze::cli
