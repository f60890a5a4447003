// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdio>

#include "util/export.h"

// The log of a host process, which hands it over once; it may hand over an object of a derived class. An
// entry is
//
//   "<time>  <area> <letter>\t <id> <text>"
//
// The area is a letter for the subsystem, the letter is the kind (E error, M message, W warning), and the id
// is the part concerned, such as a block of the record. A header with the time precedes the first entry of an
// object. Not for several threads at once.
class REFLYZE_API TLogFile {
 public:
  enum WritingMode : int {
    wmAppend = 0,
    wmOverwrite = 1,
  };
  enum LoggingMode : int {
    lmPrimaryFile = 0,
    lmPrimaryFileAndStdErr = 1,
    lmStdErr = 2,
  };

  // Opens the file; all kinds of entries are on. If it does not open, nothing is ever written.
  TLogFile(const char* name, WritingMode writing, LoggingMode logging);
  TLogFile(const TLogFile&) = delete;
  TLogFile& operator=(const TLogFile&) = delete;
  virtual ~TLogFile();

  // Switches kinds on: bit 0 errors, bit 1 warnings, bit 2 messages.
  virtual void SetLogLevel(int bits);
  // One entry. `id` and `text` may be null.
  virtual void Error(char area, const char* id, const char* text);
  virtual void Message(char area, const char* id, const char* text);
  virtual void Warning(char area, const char* id, const char* text);
  // "<name> = <value>" and "<a> <b>", straight to the primary file whatever the mode and the level. The file
  // must be open, which is an assertion.
  virtual void Data(const char* name, long value);
  virtual void Info(const char* a, const char* b);

  // Whether the primary file opened.
  bool IsEnabled() const { return enabled; }
  void SetLoggingMode(LoggingMode mode) { loggingMode_ = mode; }
  LoggingMode GetLoggingMode() const { return loggingMode_; }

  static bool IsLogToPrimaryFileRequested(LoggingMode mode);
  static bool IsLogToStdErrRequested(LoggingMode mode);

 protected:
  // One entry to every place that the mode asks for. A primary file that is asked for but is not open is an
  // assertion.
  void Log(char area, char letter, const char* id, const char* text, bool stamped);
  void Log(FILE* file, char area, char letter, const char* id, const char* text, bool stamped, bool header);

 private:
  bool enabled = false;
  bool errorsOn_ = false;
  bool messagesOn_ = false;
  bool warningsOn_ = false;
  FILE* file_ = nullptr;
  bool firstEntryWritten = false;
  LoggingMode loggingMode_;
};

// The host's log, not owned; null until a host hands one over, and then every user leaves logging out.
REFLYZE_API extern TLogFile* LogFile;
