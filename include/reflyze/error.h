// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>
#include <string>

#include "reflyze/export.h"

namespace reflyze {

// What kind of failure it is.
enum class ErrorKind {
  kUsage,       // what was asked for makes no sense for this trace
  kUnreadable,  // an input can't be read, or is no usable trace
  kUnwritable,  // an output can't be written
};

// The one failure of the library. `what()` is a line for people, "FILE: what is wrong".
class REFLYZE_API Error : public std::runtime_error {
 public:
  // `file` may name two files, "A, B", and may be empty. `block` is the block of the record at fault, or ""
  // where it is not known; `offset` the byte of the file, or -1.
  Error(ErrorKind kind, const std::string& file, const std::string& sentence, const std::string& block = "",
        long long offset = -1)
      : std::runtime_error(file.empty() ? sentence : file + ": " + sentence),
        kind_(kind),
        file_(file),
        sentence_(sentence),
        block_(block),
        offset_(offset) {}

  ErrorKind kind() const { return kind_; }                   // who is at fault
  const std::string& file() const { return file_; }          // the file at fault, or ""
  const std::string& sentence() const { return sentence_; }  // what is wrong, without the file
  const std::string& block() const { return block_; }        // block of the record at fault, or ""
  long long offset() const { return offset_; }               // byte of the file, or -1

 private:
  ErrorKind kind_;
  std::string file_, sentence_, block_;
  long long offset_;
};

// What a user should know of a file that was taken all the same. Programs print "FILE: warning: TEXT".
struct Warning {
  std::string file;  // as it was given
  std::string text;  // a sentence
};

}  // namespace reflyze
