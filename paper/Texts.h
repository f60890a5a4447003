// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <optional>
#include <string>

#include "reflyze/limits.h"

namespace reflyze::paper {

// The words of one language, and its ways with numbers. Each language is a file in paper/texts.
class Texts {
 public:
  // Throws Error kUsage for a language that is not known.
  explicit Texts(const std::string& language);

  // A word by its key. All languages have the keys of the English one, which a test holds.
  const std::string& operator[](const std::string& key) const;
  // The same with what stands for "{1}" and "{2}" in it.
  std::string With(const std::string& key, const std::string& first, const std::string& second = "") const;

  // A sentence of the library, which are English, in this language; as it is where it is none that is known.
  std::string Told(const std::string& sentence) const;

  // The word of a verdict; empty for none.
  std::string WordFor(Verdict verdict) const;

  // "-" for none. A value that rounds to 0 has no sign.
  std::string Number(std::optional<double> value, int decimals) const;
  // "±0.012" of a standard deviation, rounded up and never 0: one that looks less than it is would be
  // believed.
  std::string Deviation(std::optional<double> sd, int decimals) const;
  // A day, and a moment of UTC, as 2026-11-22 and 2026-11-22 18:04 in every language: no order of day and
  // month can be mistaken. "-" for 0.
  static std::string Day(long long utc);
  static std::string Moment(long long utc);

  const std::string& language() const { return language_; }
  const std::map<std::string, std::string>& all() const { return words_; }

 private:
  std::string language_;
  std::map<std::string, std::string> words_;
};

// Decimals by which numbers are judged, so that a number and its verdict never differ.
constexpr int kLossDecimals = 3, kReflectanceDecimals = 2, kLengthDecimals = 4, kMetresDecimals = 2;

// A text of a record or a name as one harmless line: valid UTF-8, without control characters, without letters
// that turn the direction of what follows, of a bounded length.
std::string Harmless(const std::string& text);
// The same, with "-" for one that is blank.
std::string HarmlessOrDash(const std::string& text);

}  // namespace reflyze::paper
