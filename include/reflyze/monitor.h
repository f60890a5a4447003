// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "reflyze/events.h"

namespace reflyze {

// A part of the fibre.
struct Stretch {
  double fromKm = 0.0, toKm = 0.0;  // from the user's zero
};

// A setting of the comparison that a baseline carries, by the name under which a record stores it.
struct ComparisonSetting {
  const char* name;     // under which a record stores it
  double least, most;   // its bounds
  const char* meaning;  // in words, with its unit
};
// All settings that there are.
REFLYZE_API const std::vector<ComparisonSetting>& ComparisonSettings();
REFLYZE_API const ComparisonSetting* FindComparisonSetting(
    const std::string& name);  // null where there is none

// Limits are stored in thousandths in 16 bits.
constexpr double kLargestLimit = 32.5;  // dB, dB/km

// How a fibre is to be watched. Limits are of changes against the baseline; of losses only growth counts.
struct Monitoring {
  std::string level;            // name of the alarm level, UTF-8, not empty
  double ltDb = 0.2;            // loss of an event
  double rtDb = 2.0;            // reflectance
  double ctDbPerKm = 0.05;      // attenuation of a section
  double eelDb = 0.5;           // end-to-end loss
  std::vector<Stretch> search;  // where new events are searched; else in each section between two events
  std::vector<std::pair<std::string, double>> settings;  // by the names of ComparisonSettings
};

// A trace that others of its fibre are compared with.
struct Baseline {
  EventTable events;              // that are watched
  Monitoring monitoring;          // as the record holds it: limits in thousandths, all stretches and settings
  std::vector<Warning> warnings;  // what a user should know
  StoredRecord record;            // the trace with all of this
};

// Makes the baseline of a fibre. A trace without usable events is analysed first. Throws Error kUnreadable
// for a trace that can't be measured or shows no fibre, kUsage for a stretch that is not on it, for a level
// without a name and for a setting or limit out of its bounds.
REFLYZE_API Baseline MakeBaseline(Trace trace, const Monitoring& monitoring);

// What has become of one quantity of an event, and its limit, in dB or dB/km.
struct Deviation {
  double value = 0.0;     // the change against the baseline, or the quantity itself where that is limited
  bool absolute = false;  // `value` is the quantity itself
  bool compared = false;  // there was something to compare
  bool exceeded = false;  // the limit was
  double limit = 0.0;     // dB or dB/km
  // The same, measured on both traces, dB or dB/km; none where one of the traces does not tell.
  std::optional<double> measured;
  std::optional<double> measuredSd;  // standard deviation of its error, in the same unit
  // The limit would be exceeded, but `measured` lies on this side of it by more than three deviations, and
  // not over that of a change the other way: no alarm.
  bool contradicted = false;
};

// An event of the current trace, held against the baseline.
struct ComparedEvent {
  Event event;                               // of the current trace
  bool monitored = false;                    // it stands in the baseline
  bool isNew = false;                        // it does not
  bool fail = false;                         // a limit is exceeded
  bool fiberBreak = false;                   // the fibre ends here, too early
  bool newContradicted = false;              // it was taken for new, but its loss is not: no alarm
  Deviation loss, reflectance, attenuation;  // a limit of the reflectance itself is one of the return loss
};

// Where the fibre was looked for and not found.
struct LinkTest {
  double distanceKm = 0.0;                   // km from the user's zero
  double baselineDb = 0.0, currentDb = 0.0;  // levels there
  bool noLight = false;                      // the current one is noise
};

// What a comparison comes to, by the codes that a host is given.
enum ComparisonCode : int {
  kCompared = 1,           // the flags of the events say what has changed
  kNoLink = 10002,         // the current trace does not show the fibre
  kNoActiveLevel = 10003,  // the baseline does not say what to hold the fibre against
  kFibreBreak = 10004,     // the fibre ends before the end of monitoring
};

// What a comparison says of a current trace.
struct Comparison {
  std::string baselineFile, file;        // of both traces
  Numbers numbers = Numbers::kMeasured;  // which numbers the rows have
  int result = kCompared;                // a ComparisonCode, or what else a module answers
  bool fail = false;                     // of the trace as a whole
  bool recheck = false;                  // results of an earlier comparison, held against limits again
  std::string level;                     // of the alarm, UTF-8
  double baselineLengthKm = 0.0;         // km from launch to end
  std::optional<LinkTest> linkTest;      // where another fibre was found, or none
  std::vector<ComparedEvent> rows;       // along the fibre
  std::vector<Warning> warnings;         // what a user should know
  StoredRecord record;                   // the current trace with its results

  bool Changed() const { return fail || result != kCompared; }  // anything at all
};

// How two traces are compared.
struct CompareOptions {
  bool recheck = false;  // hold the results that are stored in the current trace against the limits again
};

// What changed on a fibre since its baseline, which MakeBaseline or an instrument has made. Throws Error
// kUnreadable for traces that can't be measured, a baseline with events or limits missing, and, for a
// recheck, a trace without results.
REFLYZE_API Comparison Compare(Trace baseline, Trace current, const CompareOptions& options = {});

class MeasuredBaselines;

// Remembers what was measured on baselines, about 2 kB each: a third of the work of a comparison. It is for
// whoever compares many traces with each. Any threads may use it at a time.
class REFLYZE_API BaselineMemory {
 public:
  explicit BaselineMemory(std::size_t most = 1024);  // baselines; the one that was not used for longest goes
  BaselineMemory(const BaselineMemory&) = delete;
  BaselineMemory& operator=(const BaselineMemory&) = delete;
  ~BaselineMemory();
  MeasuredBaselines& Held() const { return *held_; }  // for the library itself

 private:
  std::unique_ptr<MeasuredBaselines> held_;
};

// The same comparison, faster where the memory knows the baseline.
REFLYZE_API Comparison Compare(Trace baseline, Trace current, BaselineMemory& memory,
                               const CompareOptions& options = {});

// One plain sentence for each change, in the order of their places. If there is none, one sentence that says
// so.
REFLYZE_API std::vector<std::string> ChangesOf(const Comparison& comparison);

}  // namespace reflyze
