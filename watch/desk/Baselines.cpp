// SPDX-License-Identifier: Apache-2.0
#include "watch/desk/Baselines.h"

#include <algorithm>
#include <vector>

#include "watch/store/Fibres.h"

namespace reflyze::watch {

std::shared_ptr<const ReadBaseline> Baselines::Get(Id id) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found =
        std::find_if(used_.begin(), used_.end(), [&](const auto& one) { return one->id == id; });
    if (found != used_.end()) {
      used_.splice(used_.begin(), used_, found);
      return used_.front();
    }
  }
  const std::string bytes =
      store_.Read([&](soci::session& session) { return BaselineBytes(session, store_.Kind(), id); });
  Trace trace = Trace::FromBytes("baseline", std::vector<char>(bytes.begin(), bytes.end()));
  EventTable events = StoredEvents(trace);
  events.record = StoredRecord();  // a second copy of the trace
  auto read = std::make_shared<const ReadBaseline>(ReadBaseline{id, std::move(trace), std::move(events)});
  const std::lock_guard<std::mutex> lock(mutex_);
  used_.push_front(read);
  if (used_.size() > kKept) used_.pop_back();
  return read;
}

}  // namespace reflyze::watch
