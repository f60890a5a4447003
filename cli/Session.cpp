// SPDX-License-Identifier: Apache-2.0
#include "cli/Session.h"

#include <unistd.h>
#include <cmath>

#include <chrono>
#include <iostream>

#include "cli/Aside.h"
#include "reflyze/files.h"
#include "reflyze/text.h"

namespace reflyze::cli {

void Session::Print(const std::string& text) {
  out_ << text << std::flush;
  if (!out_) throw Error(ErrorKind::kUnwritable, "standard output", "cannot be written");
}

void Session::Warn(const std::string& line) {
  Aside::Say([this, line] { err_ << "reflyze: " << OneLine(line) << "\n" << std::flush; });
}

void Session::Warn(const std::vector<Warning>& warnings) {
  for (const Warning& warning : warnings) Warn(warning.file + ": warning: " + warning.text);
}

std::vector<char> Session::Read(const std::string& name, size_t most) {
  if (name != "-") return ReadFile(name, most);
  std::vector<char> bytes;
  char chunk[65536];
  while (in_.read(chunk, sizeof chunk), in_.gcount() > 0) {
    bytes.insert(bytes.end(), chunk, chunk + in_.gcount());
    if (bytes.size() > most) throw Error(ErrorKind::kUnreadable, "standard input", "is too large");
  }
  if (in_.bad()) throw Error(ErrorKind::kUnreadable, "standard input", "cannot be read");
  return bytes;
}

Trace Session::Open(const std::string& name) {
  OpenOptions options;
  options.encoding = encoding;
  return Trace::FromBytes(name, Read(name), options);
}

// The time left as those that are done tell it, once there are some: "2:05 left".
std::string Session::TimeLeft(size_t number, size_t total) {
  constexpr size_t kTelling = 3;
  constexpr double kWorthTelling = 2.0;  // s
  const auto now = std::chrono::steady_clock::now();
  if (number <= 1) started_ = now;
  if (number <= kTelling) return "";
  const double gone = std::chrono::duration<double>(now - started_).count();
  const double left = gone / static_cast<double>(number - 1) * static_cast<double>(total - number + 1);
  if (gone + left < kWorthTelling) return "";
  const auto seconds = std::lround(left);
  const std::string rest = std::to_string(seconds % 60);
  return " " + std::to_string(seconds / 60) + ":" + (rest.size() < 2 ? "0" : "") + rest + " left";
}

void Session::Progress(size_t number, size_t total, const std::string& what) {
  if (&err_ != &std::cerr || isatty(STDERR_FILENO) == 0) return;
  if (what.empty()) {
    if (progressShown_) err_ << "\r\033[K" << std::flush;
    progressShown_ = false;
  } else if (total > 1) {
    progressShown_ = true;
    err_ << "\r\033[K[" << number << "/" << total << TimeLeft(number, total) << "] " << OneLine(what)
         << std::flush;
  }
}

void Session::OpenLog(const std::string& name) {
  // A log needs a file that opens, even where all of it goes to standard error.
  const bool toStandardError = name == "-";
  log_ = std::make_unique<SpokenLog>(toStandardError ? "/dev/null" : name.c_str(), TLogFile::wmAppend,
                                     toStandardError ? TLogFile::lmStdErr : TLogFile::lmPrimaryFile);
  if (!log_->IsEnabled()) throw reflyze::Error(ErrorKind::kUnwritable, name, "the log cannot be written");
  LogFile = log_.get();
}

ModuleHost& Session::Module() {
  if (!module_) module_ = std::make_unique<ModuleHost>(log_.get());
  return *module_;
}

}  // namespace reflyze::cli
