// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <string>
#include <vector>

#include "watch/desk/AlarmLife.h"
#include "watch/store/Alarms.h"

namespace reflyze::watch {

// To whom alarms go: the least severity that each channel wants.
using Listeners = std::map<std::string, Severity>;

// Keeps what has become of alarms, and lets their messages wait for the channels that want them. Belongs
// inside Store::Write. Gives the alarms with their numbers.
std::vector<AlarmChange> KeepChanges(soci::session& session, std::vector<AlarmChange> changes,
                                     const Listeners& listeners, Millis now);

// An alarm as JSON, for people and programs that look on. Times are milliseconds since 1970.
std::string JsonOf(const Alarm& alarm, const std::string& fibre);

}  // namespace reflyze::watch
