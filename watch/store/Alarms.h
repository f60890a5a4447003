// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <soci/soci.h>

#include <optional>
#include <string>
#include <vector>

#include "watch/store/Store.h"
#include "watch/store/Values.h"

// Alarms, and the messages that tell of them. All that writes belongs inside Store::Write.

namespace reflyze::watch {

std::vector<Alarm> OpenAlarms(soci::session& session, Id fibre);
// Those of fibres and instruments from which nothing comes.
std::vector<Alarm> OpenSilence(soci::session& session);
std::optional<Alarm> FindAlarm(soci::session& session, Id id);

// What a list of alarms shows: the newest first.
struct AlarmQuery {
  bool open = true;  // only those that count: confirmed and not cleared
  Id fibre = 0;      // of this fibre alone
  Id before = 0;     // older than this one; 0 for the newest
  long most = 100;
};
std::vector<Alarm> Alarms(soci::session& session, const AlarmQuery& query);

// Adds an alarm (number 0) or keeps what has become of one. Gives its number.
Id PutAlarm(soci::session& session, const Alarm& alarm);
// Whether there was such an alarm, open and not acknowledged before; of several at once, one succeeds.
bool Acknowledge(soci::session& session, Id id, const std::string& who, Millis now);

// A message to be sent as soon as possible.
void Enqueue(soci::session& session, Id alarm, Telling what, const std::string& channel, Millis now);
// The longest time that a message waits. One that seems to wait for longer is due: a clock was set.
constexpr Millis kLongestPause = 600000;
bool AnyDue(soci::session& session, Millis now);
// Takes messages that are due, so that no other centre takes them. What `centre` has taken before and said
// nothing of is due again.
std::vector<Delivery> ClaimDue(soci::session& session, Dialect kind, const std::string& centre, Millis now,
                               long most);
// Whether a message is still this centre's to send.
bool IsClaimed(soci::session& session, Id delivery, const std::string& centre);
void Delivered(soci::session& session, Id delivery);
// Lets a message of this centre's wait until `nextAt`.
void TryLater(soci::session& session, const Delivery& delivery, const std::string& centre, Millis nextAt);
// Puts a message of this centre's on the list of those that could not be told.
void GiveUp(soci::session& session, const Delivery& delivery, const std::string& centre);
std::vector<Delivery> DeadLetters(soci::session& session, long most);
// Lets all dead letters wait again. Gives how many.
long Revive(soci::session& session, Millis now);

}  // namespace reflyze::watch
