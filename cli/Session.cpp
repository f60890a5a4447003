#include "cli/Session.h"

#include <unistd.h>

#include <iostream>

#include "cli/Aside.h"
#include "cli/Text.h"

namespace reflyze::cli {

void Session::Print(const std::string& text) {
  out_ << text << std::flush;
  if (!out_) throw Problem(kUnwritable, "standard output: cannot be written");
}

void Session::Warn(const std::string& line) {
  Aside::Say([this, line] { err_ << "reflyze: " << OneLine(line) << "\n" << std::flush; });
}

void Session::Progress(size_t number, size_t total, const std::string& what) {
  if (&err_ != &std::cerr || isatty(STDERR_FILENO) == 0) return;
  if (what.empty()) {
    err_ << "\r\033[K" << std::flush;
  } else if (total > 1) {
    err_ << "\r\033[K[" << number << "/" << total << "] " << OneLine(what) << std::flush;
  }
}

void Session::OpenLog(const std::string& name) {
  // A log that only goes to standard error still wants a primary file that opens.
  const bool toStandardError = name == "-";
  log_ = std::make_unique<SpokenLog>(toStandardError ? "/dev/null" : name.c_str(), TLogFile::wmAppend,
                                     toStandardError ? TLogFile::lmStdErr : TLogFile::lmPrimaryFile);
  if (!log_->IsEnabled()) throw Problem(kUnwritable, name + ": the log cannot be written");
  LogFile = log_.get();
}

ModuleHost& Session::Module() {
  if (!module_) module_ = std::make_unique<ModuleHost>(log_.get());
  return *module_;
}

}  // namespace reflyze::cli
