// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "reflyze/events.h"

namespace reflyze {

// What a number is worth against its limit, the worst last. Numbers are judged as they are printed, so that
// what a listing shows and what it says of it never differ: losses and attenuations to 0.001, reflectances
// and return losses to 0.01 dB, lengths to 0.0001 km. A number on its limit passes.
enum class Verdict {
  kNone,      // there is no limit, or no number
  kPass,      // within the limit
  kWarning,   // within the limit, beyond the limit of warning
  kMarginal,  // within the limit, which its uncertainty (1.96 standard deviations, 95 %) reaches over
  kFail,      // beyond the limit
};

// "", "pass", "warning", "marginal", "fail".
REFLYZE_API const char* WordOf(Verdict verdict);

// One limit, in the unit of its name.
struct Limit {
  std::optional<double> fail;     // beyond it a number fails
  std::optional<double> warning;  // beyond it a number that passes is a warning
};

// A limit at wavelengths between two, nm.
struct BandLimit {
  double fromNm = 0.0;  // nm
  double toNm = 0.0;    // nm
  Limit limit;          // in dB/km
};

// The limits of a link. What has none is not judged.
struct LimitSet {
  Limit spliceDb;                             // loss of a joint that reflects nothing, at most, dB
  Limit connectorDb;                          // loss of a joint that reflects, at most, dB
  Limit reflectanceDb;                        // of a joint, at most, dB, negative
  Limit sectionDbPerKm;                       // attenuation of a section between two joints, at most, dB/km
  std::vector<BandLimit> attenuationDbPerKm;  // the same where a wavelength has its own; the narrowest counts
  std::vector<BandLimit> linkDbPerKm;         // loss of the link with its joints over its length, at most
  Limit spanLossDb;                           // loss of the link, at most, dB
  Limit returnLossDb;                         // of the link, at least, dB
  Limit lengthKm;                             // of the link, at most, km
  Limit leastLengthKm;                        // of the link, at least, km
};

// A document of limits is a page of text.
constexpr std::size_t kLargestLimitsDocument = 1u << 16;  // bytes

// What a link has to be like.
struct Limits {
  std::string name;    // of the norm or the customer
  LimitSet oneWay;     // for numbers of one direction
  LimitSet meanOfTwo;  // for means of two directions; what it lacks is that of one direction

  // Reads a document: INI with the sections [limits] (name), [one way] and [mean of two], or JSON with
  // "name", "one_way" and "mean_of_two". Keys are splice_db, connector_db, reflectance_db,
  // section_db_per_km, attenuation_db_per_km and link_db_per_km with an at sign and a wavelength in nm behind
  // them or two with a hyphen between, span_loss_db, return_loss_db, length_km, least_length_km, each also
  // with ".warning" behind it. One wavelength stands for 25 nm either side.
  // Throws Error kUnreadable, with the line or the key, for what is none.
  static REFLYZE_API Limits FromText(const std::string& file, const std::string& text);
  // The same of a file.
  static REFLYZE_API Limits FromFile(const std::string& file);
};

// What the numbers of an event are worth.
struct EventVerdict {
  Verdict loss = Verdict::kNone;         // of a group, that of the sum
  Verdict reflectance = Verdict::kNone;  // a saturated one passes at most marginally: it is at least so much
  Verdict attenuation = Verdict::kNone;  // of the section before the event
  int group = 0;                         // from 1: events that can't be told apart; 0 for one by itself
  std::optional<double> groupLossDb;     // sum of the group's losses, dB
  std::optional<double> groupLimitDb;    // sum of the limits of its parts, dB
};

// What a link is worth.
struct LinkVerdict {
  Verdict verdict = Verdict::kNone;          // the worst of all
  Verdict length = Verdict::kNone;           // of the link
  Verdict spanLoss = Verdict::kNone;         // of the link
  Verdict returnLoss = Verdict::kNone;       // of the link
  Verdict linkAttenuation = Verdict::kNone;  // loss over length
  std::vector<EventVerdict> events;          // of each event of the table
  std::vector<std::string> sentences;        // what is no pass, along the fibre: number, limit, verdict
};

// A number against a limit that it may reach (`atMost`) or must reach. `decimals` are those that are printed.
REFLYZE_API Verdict Judge(std::optional<double> value, std::optional<double> deviation, const Limit& limit,
                          int decimals, bool atMost = true);

// Judges a table by the limits of one direction. Launch and end of the trace are no joints and have no loss;
// with `first` and `last` only the events between these indices, both included, and the sections between them
// belong to the link. An echo is no event. Events whose losses are known as a sum alone are judged together,
// by the sum of their limits.
REFLYZE_API LinkVerdict Judge(const EventTable& table, const Limits& limits, std::size_t first = 0,
                              std::size_t last = static_cast<std::size_t>(-1));

}  // namespace reflyze
