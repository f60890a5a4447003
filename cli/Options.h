#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "reflyze/events.h"

namespace reflyze::cli {

class Session;

// What the options of several commands take. The library's own range lets "not a number" and the empty text
// of an unset variable pass.

// A plain finite number between two bounds. As a transformation it says the double next to the text digit by
// digit: the library reads a wider type, which is rounded twice, and not equally wide on all machines.
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

// Where the thresholds of an analysis come from: single values before the document, the document before the
// trace.
struct ThresholdOptions {
  Thresholds thresholds;
  std::string file;             // INI document
  std::string section = "NON";  // the section that such a document holds by default
};

void AddThresholdOptions(CLI::App& command, ThresholdOptions& options);
// The document is read once for all traces, so that it may come through a pipe. None without a file.
ThresholdDocument ReadDocument(Session& session, const ThresholdOptions& options);

}  // namespace reflyze::cli
