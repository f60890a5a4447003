// SPDX-License-Identifier: Apache-2.0
#include "lib/CurveTable.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <string_view>

#include "lib/Text.h"

namespace reflyze {
namespace {

constexpr int kMostLinesInFront = 100;
constexpr double kMetresPerKm = 1000.0;
constexpr double kLongestTraceKm = 1000.0;                      // no trace reaches so far
constexpr double kLeastSpacingKm = 1e-7, kMostSpacingKm = 1.0;  // what the fields of a record can tell

// A cell without blanks and quotes around it.
std::string Bare(std::string_view cell) { return Trimmed(cell, " \t\r\""); }

std::string Lower(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return lower;
}

// A number of a cell, and the decimals that it was written with.
struct Number {
  bool valid = false;
  double value = 0.0;
  int decimals = 0;
};

Number NumberOf(std::string_view cell) {
  std::string text = Bare(cell);
  std::replace(text.begin(), text.end(), ',', '.');
  Number number;
  if (text.empty() || text.find_first_not_of("0123456789+-.eE") != std::string::npos) return number;
  char* stop = nullptr;
  number.value = std::strtod(text.c_str(), &stop);
  number.valid = stop == text.c_str() + text.size() && std::isfinite(number.value);
  const std::size_t point = text.find('.');
  const std::size_t digits =
      point == std::string::npos ? point : text.find_first_not_of("0123456789", point + 1);
  if (point != std::string::npos)
    number.decimals = static_cast<int>(std::min(digits, text.size()) - point - 1);
  // An exponent makes decimals of its own; such a number is taken as exact.
  if (point != std::string::npos && digits != std::string::npos) number.decimals = 15;
  return number;
}

std::vector<std::string_view> CellsOf(std::string_view line, char separator) {
  std::vector<std::string_view> cells;
  bool quoted = false;
  std::size_t from = 0;
  for (std::size_t i = 0; i < line.size(); ++i) {
    quoted = quoted != (line[i] == '"');
    if (quoted || line[i] != separator) continue;
    cells.push_back(line.substr(from, i - from));
    from = i + 1;
  }
  cells.push_back(line.substr(from));
  return cells;
}

char SeparatorOf(std::string_view line) {
  for (const char separator : {'\t', ';'}) {
    if (line.find(separator) != std::string_view::npos) return separator;
  }
  return ',';
}

// From 1; 0 where the column is named otherwise than by a number.
std::size_t ColumnNumber(const std::string& column) {
  std::size_t number = 0;
  const auto [stop, error] = std::from_chars(column.data(), column.data() + column.size(), number);
  return error == std::errc() && stop == column.data() + column.size() ? number : 0;
}

// One pass over the lines: those in front, the heading among them, then a point a line.
class CurveReader {
 public:
  CurveReader(const ImportOptions& options, const std::string& source) : options_(options), source_(source) {
    const std::size_t distance = ColumnNumber(options.distanceColumn),
                      level = ColumnNumber(options.levelColumn);
    distance_ = distance > 0 ? distance - 1 : 0;
    level_ = level > 0 ? level - 1 : distance_ + 1;
  }

  EvenCurve Read(std::string_view text) {
    if (text.size() > kLargestCurve) throw Error(ErrorKind::kUnreadable, source_, "is too large");
    if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);
    while (!text.empty()) {
      const std::size_t end = std::min(text.find('\n'), text.size());
      ++line_;
      TakeLine(text.substr(0, end));
      text.remove_prefix(std::min(end + 1, text.size()));
    }
    if (places_.size() < 2)
      throw Error(ErrorKind::kUnreadable, source_, "is no curve: fewer than two rows of distance and level");
    RequireEvenSteps();
    return Finish();
  }

 private:
  [[noreturn]] void Wrong(int line, const std::string& why) const {
    throw Error(ErrorKind::kUnreadable, source_, Format("line %d: ", line) + why);
  }

  void TakeLine(std::string_view line) {
    if (line.size() > kLongestCurveLine) Wrong(line_, "is too long");
    const std::string bare = Bare(line);
    if (bare.empty() || bare[0] == '#') return;
    if (places_.empty()) separator_ = SeparatorOf(line);
    const std::vector<std::string_view> cells = CellsOf(line, separator_);
    if (places_.empty() && !IsPoint(cells)) {
      if (++inFront_ > kMostLinesInFront) Wrong(line_, "no row of distance and level so far");
      TakeHeading(cells);
      return;
    }
    if (places_.empty()) RequireClearCommas(line, cells.size());
    TakePoint(cells);
  }

  // Of a comma that parts columns and decimals alike, nobody can say which it does.
  void RequireClearCommas(std::string_view line, std::size_t cells) const {
    if (separator_ != ',' || cells < 3 || line.find('.') != std::string_view::npos || cells == columns_)
      return;
    Wrong(line_, "commas part columns and decimals alike; part the columns by semicolons");
  }

  bool IsPoint(const std::vector<std::string_view>& cells) const {
    const std::size_t most = std::max(distance_, level_);
    return cells.size() > most && NumberOf(cells[distance_]).valid && NumberOf(cells[level_]).valid;
  }

  // Every line in front may be the heading. The last one is.
  void TakeHeading(const std::vector<std::string_view>& cells) {
    const auto named = [&](std::initializer_list<const char*> words, std::size_t other) {
      for (std::size_t i = 0; i < cells.size(); ++i) {
        const std::string cell = Lower(Bare(cells[i]));
        const bool fits = std::any_of(words.begin(), words.end(),
                                      [&](const char* word) { return cell.find(word) != std::string::npos; });
        if (fits && i != other) return i;
      }
      return cells.size();
    };
    headed_ = true;
    columns_ = cells.size();
    const std::size_t distance =
        Chosen(options_.distanceColumn, cells, named({"dist", "length", "km"}, cells.size()));
    const std::size_t level = Chosen(options_.levelColumn, cells, named({"level", "db", "power"}, distance));
    distance_ = distance < cells.size() ? distance : 0;
    level_ = level < cells.size() ? level : distance_ + 1;
    const std::string cell = distance_ < cells.size() ? Lower(Bare(cells[distance_])) : "";
    metres_ =
        cell.find("km") == std::string::npos &&
        (cell == "m" || cell.find("(m)") != std::string::npos || cell.find("[m]") != std::string::npos ||
         cell.find("metre") != std::string::npos || cell.find("meter") != std::string::npos ||
         (cell.size() > 2 && (cell.substr(cell.size() - 2) == "_m" || cell.substr(cell.size() - 2) == " m")));
    missing_ = (!options_.distanceColumn.empty() && distance >= cells.size()) ? options_.distanceColumn
               : (!options_.levelColumn.empty() && level >= cells.size())     ? options_.levelColumn
                                                                              : "";
  }

  // The place of a column that was asked for by number or name, or `found`.
  static std::size_t Chosen(const std::string& column, const std::vector<std::string_view>& cells,
                            std::size_t found) {
    if (column.empty()) return found;
    if (const std::size_t number = ColumnNumber(column); number > 0)
      return std::min(number - 1, cells.size());
    for (std::size_t i = 0; i < cells.size(); ++i) {
      if (Bare(cells[i]) == column) return i;
    }
    return cells.size();
  }

  void TakePoint(const std::vector<std::string_view>& cells) {
    if (places_.empty()) {
      if (!headed_) TakeHeading(cells);
      if (!missing_.empty()) Wrong(line_, "no column \"" + OneLine(missing_) + "\" in the heading before");
    }
    if (cells.size() <= std::max(distance_, level_)) Wrong(line_, Format("only %zu cells", cells.size()));
    if (places_.size() == kMostCurvePoints) Wrong(line_, Format("more than %zu points", kMostCurvePoints));
    const Number place = Numeric(cells[distance_]), level = Numeric(cells[level_]);
    const bool metres = options_.unit.empty() ? metres_ : options_.unit == "m";
    const double km = metres ? place.value / kMetresPerKm : place.value;
    if (!(std::fabs(km) <= kLongestTraceKm))
      Wrong(line_, Format("%g km is farther than any trace reaches; are these metres?", km));
    if (!places_.empty() && cells.size() != columns_)
      Wrong(line_, Format("%zu cells, and %zu before", cells.size(), columns_));
    columns_ = cells.size();
    decimals_ = std::max(decimals_, std::min(place.decimals, 15) + (metres ? 3 : 0));
    places_.push_back(km);
    lines_.push_back(line_);
    curve_.levelsDb.push_back(level.value);
  }

  Number Numeric(std::string_view cell) const {
    const Number number = NumberOf(cell);
    if (!number.valid) Wrong(line_, "\"" + OneLine(ValidUtf8(Bare(cell))) + "\" is no number");
    return number;
  }

  // Distances are rounded, each by up to half of the last decimal.
  double RoundedKm() const {
    double unit = 1.0;
    for (int i = 0; i < decimals_; ++i) unit /= 10.0;
    return unit;
  }

  // The first step that differs from most names the line at fault. Rounding makes steps of two lengths, a
  // unit apart.
  void RequireEvenSteps() const {
    std::vector<double> steps;
    for (std::size_t i = 1; i < places_.size(); ++i) steps.push_back(places_[i] - places_[i - 1]);
    std::vector<double> sorted = steps;
    const auto middle = sorted.begin() + static_cast<std::ptrdiff_t>(sorted.size() / 2);
    std::nth_element(sorted.begin(), middle, sorted.end());
    const double within = std::max(0.25 * std::fabs(*middle), 1.01 * RoundedKm());
    for (std::size_t i = 0; i < steps.size(); ++i) {
      if (steps[i] < 0.0 || std::fabs(steps[i] - *middle) > within)
        Wrong(lines_[i + 1],
              Format("is %.4f m behind the point before, and others are %.4f m: points are not evenly spaced",
                     steps[i] * kMetresPerKm, *middle * kMetresPerKm));
    }
  }

  EvenCurve Finish() {
    const auto spans = static_cast<double>(places_.size() - 1);
    curve_.firstKm = places_.front();
    curve_.spacingKm = (places_.back() - places_.front()) / spans;
    if (!(curve_.spacingKm >= kLeastSpacingKm && curve_.spacingKm <= kMostSpacingKm))
      Wrong(lines_.back(),
            Format("points are %g m apart, which no trace has", curve_.spacingKm * kMetresPerKm));
    const double within = std::max(0.1 * curve_.spacingKm, 1.01 * RoundedKm());
    for (std::size_t i = 0; i < places_.size(); ++i) {
      const double even = curve_.firstKm + curve_.spacingKm * static_cast<double>(i);
      if (std::fabs(places_[i] - even) > within) Wrong(lines_[i], "points are not evenly spaced");
    }
    return std::move(curve_);
  }

  const ImportOptions& options_;
  const std::string& source_;
  EvenCurve curve_;
  std::vector<double> places_;  // km
  std::vector<int> lines_;      // on which the points stand
  std::string missing_;         // a column that was asked for and is not there
  std::size_t distance_ = 0, level_ = 1, columns_ = 0;
  int line_ = 0, inFront_ = 0, decimals_ = 0;
  char separator_ = ',';
  bool metres_ = false, headed_ = false;
};

}  // namespace

EvenCurve ReadCurve(const std::string& text, const ImportOptions& options, const std::string& source) {
  return CurveReader(options, source).Read(text);
}

}  // namespace reflyze
