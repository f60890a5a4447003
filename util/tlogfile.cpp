// SPDX-License-Identifier: Apache-2.0
#include "util/tlogfile.h"

#include <cstring>

#include "util/assertion.h"
#include "util/timeutil.h"

namespace {

constexpr int kErrorBit = 1 << 0;
constexpr int kWarningBit = 1 << 1;
constexpr int kMessageBit = 1 << 2;

constexpr char kRule[] = "-------------------------------------------------------------";
static_assert(sizeof kRule == 61 + 1, "a rule is 61 dashes");

const char* OrEmpty(const char* text) { return text == nullptr ? "" : text; }

}  // namespace

TLogFile* LogFile = nullptr;

TLogFile::TLogFile(const char* name, WritingMode writing, LoggingMode logging) : loggingMode_(logging) {
  if (name != nullptr) file_ = std::fopen(name, writing == wmAppend ? "at" : "wt");
  enabled = file_ != nullptr;
  TLogFile::SetLogLevel(kErrorBit | kWarningBit | kMessageBit);
}

TLogFile::~TLogFile() {
  if (file_ != nullptr) std::fclose(file_);
}

void TLogFile::SetLogLevel(int bits) {
  errorsOn_ = (bits & kErrorBit) != 0;
  messagesOn_ = (bits & kMessageBit) != 0;
  warningsOn_ = (bits & kWarningBit) != 0;
}

void TLogFile::Error(char area, const char* id, const char* text) {
  if (errorsOn_) Log(area, 'E', id, text, true);
}

void TLogFile::Message(char area, const char* id, const char* text) {
  if (messagesOn_) Log(area, 'M', id, text, true);
}

void TLogFile::Warning(char area, const char* id, const char* text) {
  if (warningsOn_) Log(area, 'W', id, text, true);
}

void TLogFile::Data(const char* name, long value) {
  reflyze::Require(file_ != nullptr, "file");
  std::fprintf(file_, "%s = %ld\n", OrEmpty(name), value);
  std::fflush(file_);
}

void TLogFile::Info(const char* a, const char* b) {
  reflyze::Require(file_ != nullptr, "file");
  std::fprintf(file_, "%s %s\n", OrEmpty(a), OrEmpty(b));
  std::fflush(file_);
}

bool TLogFile::IsLogToPrimaryFileRequested(LoggingMode mode) { return mode < lmStdErr; }

bool TLogFile::IsLogToStdErrRequested(LoggingMode mode) {
  return mode == lmPrimaryFileAndStdErr || mode == lmStdErr;
}

void TLogFile::Log(char area, char letter, const char* id, const char* text, bool stamped) {
  const bool header = !firstEntryWritten;
  if (IsLogToPrimaryFileRequested(loggingMode_)) Log(file_, area, letter, id, text, stamped, header);
  if (IsLogToStdErrRequested(loggingMode_)) Log(stderr, area, letter, id, text, stamped, header);
  firstEntryWritten = true;
}

void TLogFile::Log(FILE* file, char area, char letter, const char* id, const char* text, bool stamped,
                   bool header) {
  reflyze::Require(file != nullptr, "file");
  if (!enabled) return;

  char stamp[64] = "";  // as a calendar of the C library puts it, without the line feed
  std::tm local{};
  if (reflyze::ToLocalTime(GetUTCTimeStamp(), local) && asctime_r(&local, stamp) != nullptr) {
    stamp[std::strcspn(stamp, "\n")] = '\0';
  }
  if (header) std::fprintf(file, "%s\n%s\n\n%s\n", kRule, stamp, kRule);
  if (stamped) {
    std::fprintf(file, "%s  %c %c\t %s %s\n", stamp, area, letter, OrEmpty(id), OrEmpty(text));
  } else {
    std::fprintf(file, "%c %c\t %s %s\n", area, letter, OrEmpty(id), OrEmpty(text));
  }
  std::fflush(file);
}
