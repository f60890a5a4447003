// SPDX-License-Identifier: Apache-2.0
#include "lib/BaselineMemory.h"

#include <functional>
#include <random>

#include "lib/LoadedRecord.h"
#include "sor/sorData.h"

namespace reflyze {
namespace {

std::string Salt() {
  std::random_device device;
  std::string salt;
  for (int i = 0; i < 4; ++i) salt += std::to_string(device()) + " ";
  return salt;
}

}  // namespace

MeasuredBaselines::MeasuredBaselines(std::size_t most) : most_(most), salts_{Salt(), Salt()} {}

MeasuredBaselines::Mark MeasuredBaselines::MarkOf(TSorData& record) const {
  record.WriteProprietaryBlocks = 1;  // fine times of events stand there
  const std::string bytes = RecordBytes(record, "baseline");
  const std::hash<std::string> hash;
  return {hash(salts_[0] + bytes), hash(salts_[1] + bytes)};
}

MeasuredBaselines::Link MeasuredBaselines::Measure(TSorData& record, const MeasureOptions& options) {
  const Mark mark = MarkOf(record);
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = places_.find(mark.first);
    if (found != places_.end() && found->second->mark == mark) {
      used_.splice(used_.begin(), used_, found->second);
      return found->second->link;
    }
  }
  Link link = MeasureLink(record, options);
  const std::lock_guard<std::mutex> lock(mutex_);
  if (places_.count(mark.first) != 0) return link;  // another thread was faster
  used_.push_front({mark, link});
  places_[mark.first] = used_.begin();
  if (used_.size() > most_) {
    places_.erase(used_.back().mark.first);
    used_.pop_back();
  }
  return link;
}

BaselineMemory::BaselineMemory(std::size_t most) : held_(std::make_unique<MeasuredBaselines>(most)) {}
BaselineMemory::~BaselineMemory() = default;

}  // namespace reflyze
