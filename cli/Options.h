// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

#include "reflyze/events.h"
#include "reflyze/limits.h"
#include "reflyze/span.h"

namespace reflyze::cli {

class Session;

constexpr double kFarthestKm = 10000.0;  // of a place that can be asked for
constexpr unsigned kLastPort = 65535;

// Checks and options that several commands share. CLI11's own range check lets "not a number" and the empty
// text of an unset variable pass.

// A finite number between two bounds. As a transformation it writes the double nearest to the text in
// hexadecimal. CLI11 reads a long double and rounds that to a double: it would round twice, and long doubles
// are not equally wide on all machines.
CLI::Validator NumberBetween(double least, double most);

// A whole number from 0 to 2^64 - 1.
CLI::Validator WholeNumber();

// The name of an encoding of texts that is known here.
CLI::Validator TextEncoding();

// Whether two names are those of one file, however they are spelt.
bool NameTheSame(const std::string& one, const std::string& other);

// The name of a file to read: not empty.
CLI::Validator InputName();

// The name of a file to write: not empty, and not "-", since standard output takes the listings.
CLI::Validator OutputName();

// What help, manual page and completion show for a value that names a file.
constexpr char kFileValue[] = "FILE";

// "text" or "json".
CLI::Option* AddFormatOption(CLI::App& command, std::string& format);

// "text", "json" or "csv"; `json` says what JSON of several traces is.
CLI::Option* AddTableFormatOption(CLI::App& command, std::string& format,
                                  const std::string& json = "one object a line");

// How many traces are analysed at once.
struct WorkOptions {
  unsigned jobs = 0;   // 0: as many as the machine has cores
  bool quiet = false;  // shows no progress

  unsigned Threads() const;
};

void AddWorkOptions(CLI::App& command, WorkOptions& options);

// Where the thresholds of an analysis come from. A single value overrides the document, and the document
// overrides the trace.
struct ThresholdOptions {
  Thresholds thresholds;
  std::string file;             // INI document
  std::string section = "NON";  // the section that instruments write
};

void AddThresholdOptions(CLI::App& command, ThresholdOptions& options);
// The thresholds of the document, none without a file. It is read once for all traces, so that it may come
// through a pipe.
ThresholdDocument ReadDocument(Session& session, const ThresholdOptions& options);

// What a link is judged by, and the reels at its ends.
struct LinkOptions {
  std::string limits;           // document
  std::string launch, receive;  // km or "auto"; empty for no reel

  Reels AskedReels() const;
};

void AddLinkOptions(CLI::App& command, LinkOptions& options);
// The text of the document, empty without a file.
std::string ReadLimitsText(Session& session, const LinkOptions& options);
// The limits of the document, none without a file. Throws Error kUnreadable.
std::optional<Limits> ReadLimits(Session& session, const LinkOptions& options);

}  // namespace reflyze::cli
