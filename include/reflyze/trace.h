// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "reflyze/error.h"
#include "reflyze/export.h"
#include "reflyze/files.h"

namespace reflyze {

struct LoadedRecord;
struct KeptRecord;
class Trace;

// How a file is read.
struct OpenOptions {
  // Of the texts in it: "auto" takes those that are valid UTF-8 so and others as ISO 8859-1; else the name of
  // an encoding that the C library knows. What can't be read in it becomes U+FFFD.
  std::string encoding = "auto";
};

// What a copy leaves out or brings along. Without any of it a copy is the file, byte for byte.
struct CopyOptions {
  bool native = false;         // written anew, in the revisions and with the blocks of this library
  bool noProprietary = false;  // without the blocks of this instrument family (QRT, RFTS, EmbData)
  bool noUnknown = false;      // without the blocks that nobody here knows
};

// What a record says of itself. Texts are UTF-8 and may be blank. Numbers stand as the file has them.
struct Card {
  std::string cable, fibre, cableCode;  // names of what is measured
  std::string from, to;                 // originating and terminating location
  std::string operatorName, comment;    // of whoever took the trace
  std::string supplier, instrument, instrumentSerial, module, moduleSerial, software;  // of the instrument
  int fibreType = 0;                    // ITU-T recommendation: 652 for G.652
  long long dateUtc = 0;                // seconds since 1970, 0 where the file tells none
  double wavelengthNm = 0.0;            // nm
  double pulseNs = 0.0;                 // of the first stretch
  long points = 0;                      // of all stretches
  double spacingM = 0.0;                // between points, of the first stretch
  double rangeKm = 0.0;                 // km
  double groupIndex = 0.0;              // of the fibre, without a unit
  std::optional<double> backscatterDb;  // coefficient for a pulse of 1 ns; none where the file states none
  long averages = 0;                    // measurements in the mean
  double userOffsetKm = 0.0;  // where the user has put the zero of all distances, from the first sample
};

// A trace as its file has it. A value: copies share what was read, and none can be changed. Several threads
// may use one trace. One that was moved away throws Error kUsage, until another is assigned to it.
class REFLYZE_API Trace {
 public:
  // Reads a record (SR-4731). Throws Error kUnreadable for what is none: missing, empty, cut inside its map,
  // of a foreign revision, nested too deep. A record that can't be measured is read all the same; only what
  // measures it refuses it. kUsage for an encoding that is not known here.
  static Trace Open(const std::string& file, const OpenOptions& options = {});
  // The same of bytes at hand; `name` stands for the file, "-" for standard input.
  static Trace FromBytes(const std::string& name, std::vector<char> bytes, const OpenOptions& options = {});

  // For the library: a trace of what was read.
  explicit Trace(std::shared_ptr<LoadedRecord> loaded) : loaded_(std::move(loaded)) {}

  const std::string& Name() const;        // as it was given
  std::vector<Warning> Warnings() const;  // what a user has to know of the file, whatever is done with it
  Card GetCard() const;                   // what the record says of itself
  // Level of each point, dB, 5 log10 of power, 0 at the top of the instrument's scale.
  const std::vector<double>& LevelsDb() const;
  // Distance of each point along the fibre, km from the user's zero.
  const std::vector<double>& DistancesKm() const;
  // Why the trace can't be measured: its file ends inside the samples, it has none, holds temperatures, has
  // no scale of distances, or the same level everywhere. Empty where it can be.
  std::string WhyUnusable() const;

  // Some instruments put several whole traces into one file. The number of them, and each by itself, from 0,
  // without the events of the file, which don't tell which trace they are of. The one trace of a usual file
  // keeps its events. Throws Error kUnreadable for a number that the file does not have.
  int TraceCount() const;
  // The trace of that number by itself, from 0.
  Trace Part(int index) const;

  // Bytes gives what would be written, Save writes it; see SaveTogether. Throws Error kUnwritable, and
  // kUnreadable where a file is too broken to be written anew.
  std::string Bytes(const CopyOptions& options = {}) const;
  // Writes that file; see SaveTogether. Throws as Bytes does, and Error kUnwritable.
  void Save(const std::string& file, const CopyOptions& options = {}) const;

  // A warning for a user who stores this record with events that were found here. Some makers keep a table of
  // their own in a block that nobody here knows, which then stays as it is. Empty where there is nothing to
  // say.
  std::string SecondTableWarning() const;

  // For the library: what was read, and the same for whoever changes it; a copy where somebody else holds it
  // too.
  const LoadedRecord& Loaded() const;
  // For the library: what was read, for whoever changes it; a copy where somebody else holds it too.
  LoadedRecord Take() &&;

 private:
  std::shared_ptr<LoadedRecord> loaded_;
};

// The record that a result belongs to, as it would be stored: with its new events. A value like Trace.
class REFLYZE_API StoredRecord {
 public:
  // None.
  StoredRecord() = default;
  // For the library: a record that is kept.
  explicit StoredRecord(std::shared_ptr<KeptRecord> kept) : kept_(std::move(kept)) {}

  // Event times in the file count from the user offset, as other programs expect it. Throws Error
  // kUnwritable.
  const std::string& Bytes() const;
  bool IsThere() const { return kept_ != nullptr; }  // whether there is one
  // Writes that file; see SaveTogether. Throws Error kUnwritable.
  void Save(const std::string& file) const;
  Output To(const std::string& file) const;  // for SaveTogether
  Trace Read() const;                        // what reading that file would give

 private:
  std::shared_ptr<KeptRecord> kept_;
};

}  // namespace reflyze
