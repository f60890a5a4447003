// SPDX-License-Identifier: Apache-2.0
#include <array>
#include <cstddef>

#include "watch/store/Values.h"

namespace reflyze::watch {
namespace {

constexpr std::array<const char*, 9> kKinds = {"broken",      "other fibre", "loss",
                                               "reflectance", "attenuation", "new event",
                                               "trend",       "no trace",    "instrument"};
constexpr std::array<const char*, 4> kSeverities = {"warning", "minor", "major", "critical"};
constexpr std::array<const char*, 4> kStates = {"raised", "confirmed", "cleared", "passed"};
constexpr std::array<const char*, 3> kTellings = {"confirmed", "worse", "cleared"};

template <typename Value, std::size_t size>
std::optional<Value> Find(const std::array<const char*, size>& names, const std::string& name) {
  for (std::size_t i = 0; i < size; ++i) {
    if (name == names[i]) return static_cast<Value>(i);
  }
  return std::nullopt;
}

}  // namespace

const char* NameOf(AlarmKind kind) { return kKinds[static_cast<std::size_t>(kind)]; }
const char* NameOf(Severity severity) { return kSeverities[static_cast<std::size_t>(severity)]; }
const char* NameOf(AlarmState state) { return kStates[static_cast<std::size_t>(state)]; }
const char* NameOf(Telling what) { return kTellings[static_cast<std::size_t>(what)]; }
std::optional<AlarmKind> KindOf(const std::string& name) { return Find<AlarmKind>(kKinds, name); }
std::optional<Severity> SeverityOf(const std::string& name) { return Find<Severity>(kSeverities, name); }

}  // namespace reflyze::watch
