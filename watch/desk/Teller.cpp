// SPDX-License-Identifier: Apache-2.0
#include "watch/desk/Teller.h"

#include <algorithm>
#include <cstdio>

#include "watch/desk/Clock.h"
#include "watch/desk/Complain.h"
#include "watch/route/Route.h"
#include "watch/store/Fibres.h"

namespace reflyze::watch {
namespace {

constexpr long kDeliveriesAtOnce = 16;
constexpr std::chrono::milliseconds kLookForMail{1000};
constexpr Millis kFirstPause = 1000;

Millis PauseAfter(int tries) {
  Millis pause = kFirstPause;
  for (int i = 1; i < tries && pause < kLongestPause; ++i) pause *= 2;
  return std::min(pause, kLongestPause);
}

// Where on earth an alarm is, in words; empty where that is not known.
std::string PlaceOf(const Alarm& alarm, const Fibre& fibre) {
  if (fibre.route.empty() || alarm.km < 0.0) return "";
  try {
    const RoutePlace place = Route::FromGeoJson(fibre.name, fibre.route).At(alarm.km, alarm.sdKm);
    char text[200];
    std::snprintf(text, sizeof text, "%.6f, %.6f, within %.0f m along the route", place.latitude,
                  place.longitude, 2.0 * place.sdM);
    return place.near.empty() ? text : std::string(text) + ", near " + place.near;
  } catch (const Error&) {
    return "";
  }
}

}  // namespace

void Teller::Start() {
  thread_ = std::thread([this] { Run(); });
}

void Teller::Stop() {
  shop_.mail.Stop();
  if (thread_.joinable()) thread_.join();
}

void Teller::Run() {
  do {
    const unsigned long seen = shop_.mail.Rung();
    try {
      while (!shop_.mail.Stopping() && SendSome()) {
      }
    } catch (const StoreAway&) {  // what was sent and not noted is sent again
    } catch (const std::exception& error) {
      Complain("telling of alarms", error);
    }
    if (!shop_.mail.Wait(seen, kLookForMail)) return;
  } while (true);
}

bool Teller::SendSome() {
  // Nobody writes for nothing: a look first.
  if (!shop_.store.Read([](soci::session& session) { return AnyDue(session, Now()); })) return false;
  std::vector<Delivery> due;
  shop_.store.Write([&](soci::session& session) {
    due = ClaimDue(session, shop_.store.Kind(), shop_.name, Now(), kDeliveriesAtOnce);
  });
  for (const Delivery& delivery : due) SendOne(delivery);
  return !due.empty();
}

void Teller::SendOne(const Delivery& delivery) {
  const std::optional<Message> message = Written(delivery);
  if (!message) return;
  Delivery tried = delivery;
  ++tried.tries;
  try {
    const auto channel = std::find_if(channels_.begin(), channels_.end(),
                                      [&](const NamedChannel& one) { return one.name == delivery.channel; });
    if (channel == channels_.end())
      throw Error(ErrorKind::kUsage, delivery.channel, "is no channel any more");
    channel->channel->Send(*message);
    tried.problem.clear();
  } catch (const std::exception& error) {
    tried.problem = error.what();
  }
  shop_.store.Write([&](soci::session& session) {
    if (tried.problem.empty()) {
      Delivered(session, tried.id);
    } else if (tried.tries >= kMostTries) {
      GiveUp(session, tried, shop_.name);
    } else {
      TryLater(session, tried, shop_.name, Now() + PauseAfter(tried.tries));
    }
  });
}

// None for a message that another centre has taken, since this one stood still, or whose fibre was forgotten.
std::optional<Message> Teller::Written(const Delivery& delivery) {
  return shop_.store.Read([&](soci::session& session) -> std::optional<Message> {
    const std::optional<Alarm> alarm = FindAlarm(session, delivery.alarm);
    if (!alarm || !IsClaimed(session, delivery.id, shop_.name)) return std::nullopt;
    Message message;
    message.delivery = delivery.id;
    message.what = delivery.what;
    message.alarm = *alarm;
    if (const auto fibre = FindFibre(session, message.alarm.fibre)) {
      message.fibre = fibre->name;
      message.title = fibre->title;
      message.place = PlaceOf(message.alarm, *fibre);
      if (!shop_.address.empty()) message.link = shop_.address + "/#fibre=" + fibre->name;
    }
    return message;
  });
}

}  // namespace reflyze::watch
