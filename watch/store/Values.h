// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <vector>

// What the store of a centre holds, as values.

namespace reflyze::watch {

using Millis = long long;  // since 1970, UTC
using Id = long long;      // of a row; 0 for none

constexpr Millis kMillisPerSecond = 1000, kMillisPerDay = 86400000;

// What can be wrong with a fibre. The names stand in the store and in the interface.
enum class AlarmKind {
  kBroken,       // the fibre ends too early
  kOtherFibre,   // the trace does not show this fibre, or no light at all
  kLoss,         // of an event or of the link
  kReflectance,  // of an event
  kAttenuation,  // of a section
  kNewEvent,     // where the baseline has none
  kTrend,        // an event creeps towards its limit
  kNoTrace,      // nothing came for too long
  kInstrument,   // nothing came of any fibre of an instrument
};

// How bad (ITU-T X.733).
enum class Severity { kWarning, kMinor, kMajor, kCritical };

// The life of an alarm. One that passes before it is confirmed wakes nobody.
enum class AlarmState { kRaised, kConfirmed, kCleared, kPassed };

const char* NameOf(AlarmKind kind);
const char* NameOf(Severity severity);
const char* NameOf(AlarmState state);
std::optional<AlarmKind> KindOf(const std::string& name);
std::optional<Severity> SeverityOf(const std::string& name);

// What is wrong in one trace. A place is on the fibre, or -1 where the whole fibre is meant.
struct Finding {
  AlarmKind kind = AlarmKind::kBroken;
  Severity severity = Severity::kMajor;
  int event = -1;      // of the baseline, from 0; -1 where the baseline has none there
  double km = -1.0;    // from the user's zero
  double sdKm = 0.0;   // standard deviation of the place
  double value = 0.0;  // change or quantity, dB or dB/km
  double limit = 0.0;  // that it exceeds, in the same unit
  std::string sentence;
};

// How a fibre is watched; limits are of changes, as in reflyze::Monitoring.
struct WatchLimits {
  std::string level = "default";  // name of the alarm level
  double ltDb = 0.2;              // loss of an event
  double rtDb = 2.0;              // reflectance
  double ctDbPerKm = 0.05;        // attenuation of a section
  double eelDb = 0.5;             // end-to-end loss
};

struct Fibre {
  Id id = 0;
  std::string name;                // in addresses and folders: letters, digits, "-", "_" and "."
  std::string title;               // for people
  std::string fromEnd, toEnd;      // its ends
  std::string instrument;          // that sends its traces; empty where none is known
  std::string route;               // GeoJSON; empty where none is known
  std::string limits = "default";  // name of its limits
  int confirm = 2;                 // traces in a row before an alarm counts
  long everySeconds = 900;         // a trace is expected so often; 0 for whenever it comes
  Id baseline = 0;                 // that its traces are held against
  Millis lastTakenAt = 0;          // of the newest trace that was compared
  Millis lastReceivedAt = 0;       // when a trace came last
  Millis waitingSince = 0;         // when the oldest trace came that was not compared; 0 for none
};

// Whether traces wait, are done, or can't be used.
enum class TraceState { kWaiting = 0, kDone = 1, kBad = 2 };

struct TraceRow {
  Id id = 0;
  Id fibre = 0;
  std::string hash;       // BLAKE2b of its bytes, 32 bytes in hexadecimal
  Millis takenAt = 0;     // by the instrument's clock, where that can be true
  Millis receivedAt = 0;  // by ours
  long bytes = 0;
  TraceState state = TraceState::kWaiting;
  std::string problem;  // why it can't be used
};

// What one trace came to.
struct ComparisonRow {
  Id id = 0;
  Id trace = 0;
  Id fibre = 0;
  Millis takenAt = 0;
  int result = 1;         // reflyze::ComparisonCode
  bool changed = false;   // anything at all
  bool late = false;      // an older trace than one that was compared before; it moves no alarm
  double endKm = 0.0;     // where the fibre ends, from the user's zero
  std::string sentences;  // JSON: a list of texts
  std::string events;     // JSON: a list of {event, km, loss_db, loss_sd_db, reflectance_db, ...}
};

struct Alarm {
  Id id = 0;
  Id fibre = 0;            // 0 for one of an instrument
  std::string instrument;  // of an alarm of an instrument
  AlarmKind kind = AlarmKind::kBroken;
  Severity severity = Severity::kMajor;
  AlarmState state = AlarmState::kRaised;
  int event = -1;
  double km = -1.0, sdKm = 0.0;
  double value = 0.0, limit = 0.0;
  std::string sentence;
  int seen = 0;    // traces in a row that show it
  int missed = 0;  // traces in a row that should and don't
  Id firstTrace = 0, lastTrace = 0;
  Millis raisedAt = 0, confirmedAt = 0, clearedAt = 0, acknowledgedAt = 0;
  std::string acknowledgedBy;

  bool Open() const { return state == AlarmState::kRaised || state == AlarmState::kConfirmed; }
};

// What people are told of an alarm.
enum class Telling { kConfirmed, kWorse, kCleared };
const char* NameOf(Telling what);

// One message that has to reach one channel.
struct Delivery {
  Id id = 0;
  Id alarm = 0;
  Telling what = Telling::kConfirmed;
  std::string channel;  // its name in the document
  int tries = 0;
  Millis nextAt = 0;    // not before
  std::string problem;  // of the last try
};

// One day of one event of a fibre.
struct EventDay {
  int event = 0;  // of the baseline
  long day = 0;   // since 1970
  long count = 0;
  double lossDb = 0.0;         // mean
  double reflectanceDb = 0.0;  // mean
  long reflectanceCount = 0;
};

}  // namespace reflyze::watch
