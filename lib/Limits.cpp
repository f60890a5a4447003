// SPDX-License-Identifier: Apache-2.0

// Documents of limits.

#include "reflyze/limits.h"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "lib/Text.h"
#include "reflyze/files.h"
#include "reflyze/text.h"

namespace reflyze {
namespace {

using Json = nlohmann::ordered_json;

constexpr double kBandNm = 25.0;  // either side of a wavelength that is given as one number

// Where a key leads, and between which numbers a limit makes sense; the bounds catch slips, such as a
// reflectance without its sign.
struct Key {
  const char* name;
  double least, most;
  Limit LimitSet::*limit;  // null where the key takes a wavelength
  std::vector<BandLimit> LimitSet::*bands;
};
constexpr Key kKeys[] = {{"splice_db", 0.0, 100.0, &LimitSet::spliceDb, nullptr},
                         {"connector_db", 0.0, 100.0, &LimitSet::connectorDb, nullptr},
                         {"reflectance_db", -100.0, 0.0, &LimitSet::reflectanceDb, nullptr},
                         {"section_db_per_km", 0.0, 100.0, &LimitSet::sectionDbPerKm, nullptr},
                         {"attenuation_db_per_km", 0.0, 100.0, nullptr, &LimitSet::attenuationDbPerKm},
                         {"link_db_per_km", 0.0, 100.0, nullptr, &LimitSet::linkDbPerKm},
                         {"span_loss_db", 0.0, 100.0, &LimitSet::spanLossDb, nullptr},
                         {"return_loss_db", 0.0, 100.0, &LimitSet::returnLossDb, nullptr},
                         {"length_km", 0.0, 10000.0, &LimitSet::lengthKm, nullptr},
                         {"least_length_km", 0.0, 10000.0, &LimitSet::leastLengthKm, nullptr}};

// One document while it is read. `Fail` knows its name.
class Reader {
 public:
  explicit Reader(const std::string& file) : file_(file) {}

  Limits FromIni(const std::string& text) {
    Limits limits;
    std::string section;
    int line = 0;
    for (size_t from = 0; from < text.size();) {
      const size_t to = std::min(text.find('\n', from), text.size());
      place_ = Format("line %d: ", ++line);
      TakeLine(Trimmed(text.substr(from, to - from)), section, limits);
      from = to + 1;
    }
    return Finish(limits);
  }

  Limits FromJson(const std::string& text) {
    Limits limits;
    const Json document = Json::parse(text, nullptr, false, true);
    if (document.is_discarded() || !document.is_object()) Fail("is no JSON object");
    for (const auto& [key, value] : document.items()) {
      if (key == "name" && value.is_string()) {
        limits.name = value.get<std::string>();
      } else if ((key == "one_way" || key == "mean_of_two") && value.is_object()) {
        for (const auto& [name, number] : value.items()) {
          place_ = key + ", ";
          if (!number.is_number()) Fail(name + ": is no number");
          Set(name, Format("%.17g", number.get<double>()),
              key == "one_way" ? limits.oneWay : limits.meanOfTwo);
        }
        place_.clear();
      } else {
        Fail("\"" + key + "\" is none of name (a text), one_way and mean_of_two (objects)");
      }
    }
    return Finish(limits);
  }

 private:
  [[noreturn]] void Fail(const std::string& why) const {
    throw Error(ErrorKind::kUnreadable, file_, place_ + OneLine(why));
  }

  void TakeLine(const std::string& line, std::string& section, Limits& limits) {
    if (line.empty() || line[0] == ';' || line[0] == '#') return;
    if (line[0] == '[') {
      section = line;
      if (section != "[limits]" && section != "[one way]" && section != "[mean of two]")
        Fail(section + " is none of [limits], [one way], [mean of two]");
      return;
    }
    const size_t equals = line.find('=');
    if (equals == std::string::npos) Fail("\"" + line + "\" is no KEY = VALUE");
    const std::string key = Trimmed(line.substr(0, equals));
    const std::string whole = Trimmed(line.substr(equals + 1));
    const std::string value = Trimmed(whole.substr(0, whole.find_first_of(";#")));
    if (section == "[limits]" && key == "name") {
      limits.name = whole;
    } else if (section == "[one way]" || section == "[mean of two]") {
      Set(key, value, section == "[one way]" ? limits.oneWay : limits.meanOfTwo);
    } else {
      Fail("\"" + key + "\" stands in no section of limits");
    }
  }

  void Set(const std::string& whole, const std::string& value, LimitSet& set) {
    constexpr const char* kWarning = ".warning";
    const size_t tail = whole.rfind(kWarning);
    const bool warning = tail != std::string::npos && tail + 8 == whole.size();
    const std::string name = warning ? whole.substr(0, tail) : whole;
    const size_t at = name.find('@');
    const auto key = std::find_if(std::begin(kKeys), std::end(kKeys),
                                  [&](const Key& known) { return name.substr(0, at) == known.name; });
    if (key == std::end(kKeys)) Fail("\"" + whole + "\" is no limit that is known here");
    if ((key->bands != nullptr) != (at != std::string::npos))
      Fail(whole +
           (key->bands != nullptr ? ": lacks its wavelength, such as @1550" : ": takes no wavelength"));
    const std::string wrong = WhyNoNumber(value, key->least, key->most);
    if (!wrong.empty()) Fail(whole + ": " + wrong);
    if (!seen_.insert({&set, whole}).second) Fail(whole + ": is given twice");
    Limit& limit =
        key->bands != nullptr ? BandAt(set.*key->bands, name.substr(at + 1), whole) : set.*key->limit;
    (warning ? limit.warning : limit.fail) = std::strtod(value.c_str(), nullptr);
  }

  Limit& BandAt(std::vector<BandLimit>& bands, const std::string& text, const std::string& key) {
    const size_t dash = text.find('-');
    const std::string from = text.substr(0, dash),
                      to = dash == std::string::npos ? from : text.substr(dash + 1);
    for (const std::string& nm : {from, to}) {
      const std::string wrong = WhyNoNumber(nm, 200.0, 2000.0);
      if (!wrong.empty()) Fail(key + ": " + wrong);
    }
    BandLimit band;
    band.fromNm = std::strtod(from.c_str(), nullptr) - (dash == std::string::npos ? kBandNm : 0.0);
    band.toNm = std::strtod(to.c_str(), nullptr) + (dash == std::string::npos ? kBandNm : 0.0);
    if (band.fromNm > band.toNm) Fail(key + ": its first wavelength is above the second");
    for (BandLimit& known : bands) {
      if (known.fromNm == band.fromNm && known.toNm == band.toNm) return known.limit;
    }
    bands.push_back(band);
    return bands.back().limit;
  }

  // What the means lack is that of one direction.
  Limits Finish(Limits limits) {
    place_.clear();
    if (seen_.empty()) Fail("holds no limit, such as splice_db");
    for (const Key& key : kKeys) {
      if (key.bands != nullptr) {
        if ((limits.meanOfTwo.*key.bands).empty()) limits.meanOfTwo.*key.bands = limits.oneWay.*key.bands;
        continue;
      }
      Limit& mean = limits.meanOfTwo.*key.limit;
      const Limit& one = limits.oneWay.*key.limit;
      if (!mean.fail && !mean.warning) mean = one;
    }
    return limits;
  }

  const std::string file_;
  std::string place_;
  std::set<std::pair<const LimitSet*, std::string>> seen_;
};

}  // namespace

Limits Limits::FromText(const std::string& file, const std::string& text) {
  if (text.size() > kLargestLimitsDocument) throw Error(ErrorKind::kUnreadable, file, "is too large");
  if (text.find('\0') != std::string::npos) throw Error(ErrorKind::kUnreadable, file, "is no text");
  static const std::string kByteOrderMark = "\xEF\xBB\xBF";
  const std::string plain = text.rfind(kByteOrderMark, 0) == 0 ? text.substr(kByteOrderMark.size()) : text;
  const size_t first = plain.find_first_not_of(" \t\r\n");
  Reader reader(file);
  return first != std::string::npos && plain[first] == '{' ? reader.FromJson(plain) : reader.FromIni(plain);
}

Limits Limits::FromFile(const std::string& file) {
  const std::vector<char> bytes = ReadFile(file, kLargestLimitsDocument);
  return FromText(file, {bytes.begin(), bytes.end()});
}

}  // namespace reflyze
