// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "cli/ExitStatus.h"
#include "cli/ModuleHost.h"
#include "reflyze/record.h"

namespace CLI {
class App;
}

namespace reflyze::cli {

// One run of the program: the streams it talks to, the log, and the module once a command needs it. A command
// prints at its end and through Print, so that one that fails has printed nothing.
class Session {
 public:
  Session(std::istream& in, std::ostream& out, std::ostream& err) : in_(in), out_(out), err_(err) {}

  // All bytes of a file, or of standard input for "-". Throws Error kUnreadable, also for more bytes than
  // `most`.
  std::vector<char> Read(const std::string& name, size_t most = kLargestInput);
  Trace Open(const std::string& name);

  // Prints results on standard output. Throws Error kUnwritable where the stream does not take them.
  void Print(const std::string& text);
  // Prints one line on standard error. Control characters in it are replaced, so that a file's name or a
  // record's text can't break it. Where the thread has an Aside (cli/Aside.h), the line is kept until its
  // turn.
  void Warn(const std::string& line);
  void Warn(const std::vector<Warning>& warnings);  // a line each
  // Shows "[30/1152 2:05 left] file" on a terminal, over the line before; shows nothing elsewhere. An empty
  // text wipes it.
  void Progress(size_t number, size_t total, const std::string& what);

  // Opens the log. `name` is that of a file, or "-" for standard error. Throws Error kUnwritable where it
  // does not open.
  void OpenLog(const std::string& name);
  // The module, loaded and initialised on first use. Throws Error kUnreadable where it is not found. Loading
  // fills the module's tables and texts. After that, threads may share it, each with a record of its own.
  ModuleHost& Module();

  // What the chosen command does; set while the command line is parsed.
  std::function<int(Session&)> command;
  bool showVersion = false;
  std::string logName;
  std::string encoding = "auto";

 private:
  std::string TimeLeft(size_t number, size_t total);

  std::istream& in_;
  std::ostream& out_;
  std::ostream& err_;
  std::chrono::steady_clock::time_point started_;  // of the first of several
  bool progressShown_ = false;                     // a line of it stands on the terminal
  std::unique_ptr<TLogFile> log_;
  std::unique_ptr<ModuleHost> module_;
};

// The whole program: parses, runs, and turns every failure into one line and an exit status.
int Main(int argc, const char* const* argv, std::istream& in, std::ostream& out, std::ostream& err);

}  // namespace reflyze::cli
