// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstdlib>

#include "ref/events/refEvent.h"
#include "sor/sorData.h"
#include "src/monitor/TraceComparison.h"
#include "util/convert.h"

using reflyze::TraceComparison;

// Which event of the current trace is which of the baseline, how far the two are apart in loss,
// reflectance and attenuation, and which of these differences are too large.
//
// Deviations and thresholds are in thousandths, in 16 bits. A change has a sign. An attenuation or a
// return loss itself has no sign and uses all 16 bits.

namespace {

using reflyze::TruncToShort;
using reflyze::TruncToUShort;

constexpr long kSameTimeOwt = 10;  // times closer than this are one: 1 ns, a tenth of a metre

bool SameTime(long a, long b) { return std::labs(a - b) < kSameTimeOwt; }

constexpr double kThousandths = 1000.0;
constexpr double kHalf = 0.5;  // added whatever the sign: it rounds positive values only

short Signed(double thousandths) {
  constexpr double kMostSigned = 32500.0;
  return TruncToShort(std::clamp(thousandths, -kMostSigned, kMostSigned));
}

short Unsigned(double thousandths) {
  constexpr double kMostUnsigned = 65000.0;
  return reflyze::SignedLowBits16(TruncToUShort(std::clamp(thousandths, 0.0, kMostUnsigned)));
}

short SignedDeviation(double value) { return Signed(value * kThousandths + kHalf); }
short UnsignedDeviation(double value) { return Unsigned(value * kThousandths + kHalf); }

TShortDeviation Relative(short deviation) { return {0, deviation}; }
TShortDeviation Absolute(short deviation) { return {1, deviation}; }

unsigned short AllBits(short value) { return reflyze::LowBits16(value); }

bool Note(TShortDeviation& deviation, bool exceeded) {
  deviation.MakeCompared(true);
  deviation.MakeExceeded(exceeded);
  return exceeded;
}

// A change either way is too large.
bool ChangeExceeds(short deviation, short threshold) { return std::abs(int{deviation}) > threshold; }

bool CheckAttenuation(TShortDeviation& deviation, const TShortThreshold& threshold) {
  const short value = deviation.GetDeviation(), limit = threshold.GetThreshold();
  return Note(deviation,
              threshold.IsAbsolute() ? AllBits(value) > AllBits(limit) : ChangeExceeds(value, limit));
}

// A loss that has fallen needs nobody's care.
bool CheckLoss(TShortDeviation& deviation, const TShortThreshold& threshold) {
  return Note(deviation, deviation.GetDeviation() > threshold.GetThreshold());
}

// The value itself is a return loss: the smaller, the worse.
bool CheckReflectance(TShortDeviation& deviation, const TShortThreshold& threshold) {
  const short value = deviation.GetDeviation(), limit = threshold.GetThreshold();
  return Note(deviation,
              threshold.IsAbsolute() ? AllBits(value) < AllBits(limit) : ChangeExceeds(value, limit));
}

// Entry of a key event; null where the table of entries does not reach to it.
TSorBlockRFTSEvents1E* EntryAt(const TSorBlockRFTSEvents& entries, int index) {
  return index < entries.GetTNRFTSE() ? entries.GetEvent(index) : nullptr;
}

}  // namespace

int TraceComparison::GetEventIndex(TSorData* trace, long owt) const {
  const TSorBlockKeyEvents& events = *trace->KeyEvents;
  for (int i = 0; i < events.ListedEvents(); ++i) {
    if (SameTime(events.EventAt(i).EPT, owt)) return i;
  }
  return -1;
}

bool TraceComparison::IsOwtWithinAutoEvent(long owt, TSorData* trace, TSorBlockKeyEvents1E* event) const {
  const bool reflective = RefEventIsEventRFTSReflective(trace, event, monitoring.EventRT);
  const double limitKm = reflective ? monitoring.EvtRDetectDeltaLen : monitoring.EvtDetectDeltaLen;
  return static_cast<double>(std::labs(event->EPT - owt)) <= trace->dLenToOwt(limitKm);
}

TSorBlockKeyEvents1E* TraceComparison::GetCorrespondentEvent(TSorData* a, TSorData* b,
                                                             TSorBlockKeyEvents1E* event) const {
  TSorBlockKeyEvents& candidates = *b->KeyEvents;
  const int same = GetEventIndex(b, event->EPT);
  if (same >= 0) return &candidates.EventAt(same);
  for (int i = 0; i < candidates.ListedEvents(); ++i) {
    if (IsOwtWithinAutoEvent(candidates.EventAt(i).EPT, a, event)) return &candidates.EventAt(i);
  }
  return nullptr;
}

// Thresholds go with the event of the baseline, the entry with that of the current trace: between them stand
// the events that only the current trace has.
bool TraceComparison::srCompare_InitNextEvents(int index, TSorData* base, TSorData* current,
                                               TRFTSLevel* level, TSorBlockKeyEvents1E*& baseEvent,
                                               TSorBlockKeyEvents1E*& currentEvent,
                                               TSorBlockRFTSEvents1E*& entry, TThresholdsRFTSSet*& thresholds,
                                               long) const {
  if (index < 0 || index >= base->KeyEvents->ListedEvents()) return false;
  baseEvent = &base->KeyEvents->EventAt(index);
  const int position = GetEventIndex(current, baseEvent->EPT);
  if (position < 0) return false;
  currentEvent = &current->KeyEvents->EventAt(position);
  entry = EntryAt(*current->RFTSEvents, position);
  thresholds = index < level->GetTNTS() ? level->GetThresholdsSet(index) : nullptr;
  return true;
}

void TraceComparison::srCompare_InitRFTSEvent(TSorData* base, TSorData* current, TSorBlockRFTSEvents1E* entry,
                                              TThresholdsRFTSSet* thresholds, TSorBlockKeyEvents1E* baseEvent,
                                              TSorBlockKeyEvents1E* currentEvent) const {
  if (thresholds->GetCT().IsAbsolute()) {
    entry->CT = Absolute(UnsignedDeviation(currentEvent->GetACI()));
  } else {
    entry->CT = Relative(SignedDeviation(currentEvent->GetACI() - baseEvent->GetACI()));
  }

  if (thresholds->GetLT().IsAbsolute()) {
    entry->LT = Absolute(SignedDeviation(currentEvent->GetEL()));
  } else if (!baseEvent->IsEOF()) {  // the loss of the end is that into the noise and tells nothing
    entry->LT = Relative(SignedDeviation(currentEvent->GetEL() - baseEvent->GetEL()));
  }

  if (thresholds->GetRT().IsAbsolute()) {
    entry->RT = Absolute(Unsigned(currentEvent->GetER() * -kThousandths + kHalf));
  } else {
    const double height = monitoring.EventRT;
    entry->RT = Relative(SignedDeviation(RefEventGetEventRFTSReflection(current, currentEvent, height) -
                                         RefEventGetEventRFTSReflection(base, baseEvent, height)));
  }
}

void TraceComparison::srCompare_CheckRFTSEvent(TSorBlockRFTSEvents1E* entry, TThresholdsRFTSSet* thresholds,
                                               TSorData* current) const {
  const TSorBlockRFTSEvents& entries = *current->RFTSEvents;
  const bool atEndOfFibre = entry == entries.GetEvent(entries.GetTNRFTSE() - 1);
  entry->MakeMonitored(true);
  bool exceeded = CheckAttenuation(entry->CT, thresholds->GetCT());
  if (!atEndOfFibre) exceeded |= CheckLoss(entry->LT, thresholds->GetLT());
  exceeded |= CheckReflectance(entry->RT, thresholds->GetRT());
  if (!exceeded) return;
  entry->MakeFail(true);
  current->RFTSEvents->MakeFail(true);
}

void TraceComparison::srCompare_EELT(TSorData* base, TSorData* owner, TSorData* measured,
                                     TRFTSLevel* level) const {
  const TShortThreshold& threshold = level->GetEELT();
  const double lossDb = measured->KeyEvents->GetEEL();
  TShortDeviation deviation = threshold.IsAbsolute()
                                  ? Absolute(SignedDeviation(lossDb))
                                  : Relative(SignedDeviation(lossDb - base->KeyEvents->GetEEL()));
  const short value = deviation.GetDeviation(), limit = threshold.GetThreshold();
  const bool exceeded = Note(deviation, threshold.IsAbsolute() ? value > limit : ChangeExceeds(value, limit));
  owner->RFTSEvents->SetEELD(deviation);
  if (exceeded) owner->RFTSEvents->MakeFail(true);
}
