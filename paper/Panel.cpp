// SPDX-License-Identifier: Apache-2.0
#include "paper/Panel.h"

#include <algorithm>
#include <cmath>

#include "paper/Scale.h"

namespace reflyze::paper {
namespace {

constexpr double kLabelSide = 9.0;              // of the numbers above the curve
constexpr double kStrip = 15.0;                 // room for them
constexpr double kLeft = 30.0, kBottom = 20.0;  // room for the axes
constexpr double kMargin = 0.02;                // of the link, in front of it and behind
constexpr Colour kReel = {0.93, 0.94, 0.955};

// One curve as it is drawn: which trace, where its link begins, and in which direction it looks.
struct Drawn {
  const Curve* curve;
  double zeroKm, lengthKm;
  bool mirrored;
  int nm;

  double X(size_t i) const {
    const double km = static_cast<double>(curve->km[i]) - zeroKm;
    return mirrored ? lengthKm - km : km;
  }
  // Of the other end, the link alone: its reels and its noise would cover those of the first.
  bool IsShown(size_t i) const {
    constexpr double kBeyond = 0.005;  // of the link
    return !mirrored || (X(i) > -kBeyond * lengthKm && X(i) < (1.0 + kBeyond) * lengthKm);
  }
};

std::vector<Drawn> CurvesOf(const Fibre& fibre) {
  std::vector<Drawn> curves;
  for (const Wave& wave : fibre.waves) {
    const double length = wave.lengthKm.value_or(0.0);
    if (wave.b != nullptr) curves.push_back({&wave.b->whole, wave.zeroBKm, length, wave.merged, wave.nm});
    if (wave.a != nullptr) curves.push_back({&wave.a->whole, wave.zeroAKm, length, false, wave.nm});
  }
  return curves;
}

// Darker and lighter, so that they can be told apart in grey; the other direction is paler.
Colour ColourOf(const Drawn& drawn) {
  Colour colour = {0.35, 0.35, 0.38};
  if (drawn.nm < 1000) colour = {0.45, 0.10, 0.40};
  if (drawn.nm >= 1260 && drawn.nm < 1360) colour = {0.05, 0.20, 0.52};
  if (drawn.nm >= 1500 && drawn.nm < 1580) colour = {0.80, 0.36, 0.05};
  if (drawn.nm >= 1580) colour = {0.05, 0.48, 0.42};
  if (!drawn.mirrored) return colour;
  const auto paler = [](double part) { return part + 0.5 * (1.0 - part); };
  return {paler(colour.red), paler(colour.green), paler(colour.blue)};
}

struct Range {
  double from = 0.0, to = 1.0;
};

Range DistancesOf(const Fibre& fibre, const std::vector<Drawn>& curves) {
  Range range = {1e9, -1e9};
  for (const Drawn& drawn : curves) {
    if (drawn.curve->km.empty()) continue;
    const double one = drawn.X(0), other = drawn.X(drawn.curve->km.size() - 1);
    // A mirrored trace would show its noise in front of the link; that of the other end ends the picture.
    if (drawn.mirrored) continue;
    range.from = std::min({range.from, one, other});
    range.to = std::max({range.to, one, other});
  }
  for (const Wave& wave : fibre.waves) {
    for (const EventLine& line : wave.lines) {
      range.from = std::min(range.from, line.km);
      range.to = std::max(range.to, line.km);
    }
  }
  if (!(range.from < range.to)) return {0.0, 1.0};
  const double margin = kMargin * (range.to - range.from);
  return {range.from - margin, range.to};
}

// The fibre and some of the noise below it: the deepest samples of the noise say nothing.
Range LevelsOf(const std::vector<Drawn>& curves, const Range& kms) {
  std::vector<float> levels;
  for (const Drawn& drawn : curves) {
    for (size_t i = 0; i < drawn.curve->db.size(); ++i) {
      if (drawn.X(i) >= kms.from && drawn.X(i) <= kms.to) levels.push_back(drawn.curve->db[i]);
    }
  }
  if (levels.empty()) return {-1.0, 0.0};
  std::sort(levels.begin(), levels.end());
  const double low = static_cast<double>(levels[levels.size() * 4 / 100]);
  const double high = static_cast<double>(levels.back());
  const double room = std::max(0.06 * (high - low), 0.2);
  return {low - room, high + room};
}

void DrawCurve(Canvas& canvas, const Box& plot, const Scale& x, const Scale& y, const Drawn& drawn,
               double width) {
  cairo_t* cairo = canvas.cairo();
  const Colour colour = ColourOf(drawn);
  cairo_save(cairo);
  cairo_rectangle(cairo, plot.x, plot.y, plot.width, plot.height);
  cairo_clip(cairo);
  cairo_set_source_rgb(cairo, colour.red, colour.green, colour.blue);
  cairo_set_line_width(cairo, width);
  cairo_set_line_join(cairo, CAIRO_LINE_JOIN_ROUND);
  std::vector<Point> points;
  for (size_t i = 0; i < drawn.curve->km.size(); ++i) {
    if (!drawn.IsShown(i)) continue;
    points.push_back({x.At(drawn.X(i)), std::clamp(y.At(static_cast<double>(drawn.curve->db[i])),
                                                   plot.y - 50.0, plot.y + plot.height + 50.0)});
  }
  for (const Point& point : Simplified(points, 0.06)) cairo_line_to(cairo, point.x, point.y);
  cairo_stroke(cairo);
  cairo_restore(cairo);
}

void DrawAxes(Canvas& canvas, const Box& plot, const Scale& x, const Scale& y, const std::string& xUnit,
              const Texts& texts, int levels) {
  const Style style = {6.8, false, kGrey, Align::kCentre};
  for (const double tick : x.Ticks(8)) {
    canvas.Line(x.At(tick), plot.y, x.At(tick), plot.y + plot.height, kPaleGrey, 0.3);
    canvas.Text(x.At(tick), plot.y + plot.height + 9.0, texts.Number(tick, x.Decimals(8)), style);
  }
  Style right = style;
  right.align = Align::kRight;
  for (const double tick : y.Ticks(levels)) {
    canvas.Line(plot.x, y.At(tick), plot.x + plot.width, y.At(tick), kPaleGrey, 0.3);
    // The unit stands at the upper end.
    if (y.At(tick) > plot.y + 9.0)
      canvas.Text(plot.x - 4.0, y.At(tick) + 2.3, texts.Number(tick, y.Decimals(levels)), right);
  }
  canvas.Frame(plot.x, plot.y, plot.width, plot.height, kGrey, 0.5);
  right.bold = true;
  canvas.Text(plot.x + plot.width, plot.y + plot.height + 17.5, xUnit, right);
  right.align = Align::kLeft;
  canvas.Text(plot.x - kLeft, plot.y + 5.0, "dB", right);
}

struct Label {
  double km;
  int number;
  double x;  // where it stands
  Verdict verdict;
};

// Where there is no room for all numbers, those stay whose verdict is bad, and of the others every so many.
void ThinOut(std::vector<Label>& labels, size_t room) {
  if (labels.size() <= room) return;
  const auto bad = [](const Label& label) { return label.verdict > Verdict::kPass; };
  const auto kept = static_cast<size_t>(std::count_if(labels.begin(), labels.end(), bad));
  const size_t others = labels.size() - kept, places = room > kept ? room - kept : 1;
  const size_t step = (others + places - 1) / places;
  size_t at = 0;
  labels.erase(std::remove_if(labels.begin(), labels.end(),
                              [&](const Label& label) { return !bad(label) && at++ % step != 0; }),
               labels.end());
}

// The numbers of the places, each once, moved apart where they would cover each other.
std::vector<Label> LabelsOf(const Fibre& fibre, const Box& plot, const Scale& x) {
  std::vector<Label> labels;
  for (const Wave& wave : fibre.waves) {
    for (const EventLine& line : wave.lines) {
      const Verdict verdict = WorstOf(line.verdict);
      const auto same = std::find_if(labels.begin(), labels.end(),
                                     [&](const Label& other) { return other.number == line.number; });
      if (same == labels.end()) {
        labels.push_back({line.km, line.number, x.At(line.km), verdict});
      } else {
        same->verdict = std::max(same->verdict, verdict);
      }
    }
  }
  std::sort(labels.begin(), labels.end(), [](const Label& a, const Label& b) { return a.number < b.number; });
  ThinOut(labels, static_cast<size_t>(plot.width / (kLabelSide + 1.5)));
  const double apart =
      std::min(kLabelSide + 2.5, plot.width / std::max<double>(1.0, static_cast<double>(labels.size())));
  double least = plot.x + kLabelSide / 2.0;
  for (Label& label : labels) {
    label.x = std::max(label.x, least);
    least = label.x + apart;
  }
  double most = plot.x + plot.width - kLabelSide / 2.0;
  for (size_t i = labels.size(); i-- > 0;) {
    labels[i].x = std::min(labels[i].x, most);
    most = labels[i].x - apart;
  }
  return labels;
}

// Level of the highest curve at a place: there the line from the number ends.
double LevelAt(const std::vector<Drawn>& curves, double km, double low) {
  double level = low;
  for (const Drawn& drawn : curves) {
    double nearest = 1e9, found = low;
    for (size_t i = 0; i < drawn.curve->km.size(); ++i) {
      const double apart = std::fabs(drawn.X(i) - km);
      if (apart >= nearest) continue;
      nearest = apart;
      found = static_cast<double>(drawn.curve->db[i]);
    }
    level = std::max(level, found);
  }
  return level;
}

void DrawLabels(Canvas& canvas, const Box& plot, const Scale& x, const Scale& y, const Fibre& fibre,
                const std::vector<Drawn>& curves, double lowDb) {
  for (const Label& label : LabelsOf(fibre, plot, x)) {
    const double at = x.At(label.km), bottom = plot.y - 4.0;
    const double level =
        std::clamp(y.At(LevelAt(curves, label.km, lowDb)) - 2.0, plot.y, plot.y + plot.height);
    canvas.Line(label.x, bottom - 1.0, at, plot.y, kGrey, 0.35);
    canvas.Line(at, plot.y, at, level, kGrey, 0.35);
    const Colour* ground = GroundOf(label.verdict);
    const double top = plot.y - kStrip + 1.0;
    const std::string number = std::to_string(label.number);
    const double wide = label.number > 99 ? kLabelSide + 3.0 : kLabelSide;
    canvas.RoundFill(label.x - wide / 2.0, top, wide, kLabelSide, 2.0, ground ? *ground : kFaintGrey);
    canvas.Text(label.x, top + 6.9, number, {6.6, true, LettersOn(label.verdict), Align::kCentre});
  }
}

void DrawLegend(Canvas& canvas, const Box& plot, const std::vector<Drawn>& curves, const Texts& texts) {
  double at = plot.x;
  const double base = plot.y + plot.height + 17.5;
  for (size_t i = curves.size(); i-- > 0;) {
    const Drawn& drawn = curves[i];
    canvas.Line(at, base - 2.2, at + 14.0, base - 2.2, ColourOf(drawn), 1.4);
    const std::string text =
        texts.Number(drawn.nm, 0) + " nm" + (drawn.mirrored ? ", " + texts["from-b"] : "");
    const Style style = {6.8, false, kBlack};
    canvas.Text(at + 17.0, base, text, style);
    at += 17.0 + canvas.Width(text, style) + 12.0;
  }
}

// The ground of the reels below the grid, and their names above it.
enum class ReelPart { kGround, kName };
void DrawReels(Canvas& canvas, const Box& plot, const Scale& x, const Fibre& fibre, const Range& kms,
               const Texts& texts, ReelPart part) {
  const Wave& wave = fibre.waves.front();
  if (!wave.lengthKm || wave.lines.empty()) return;
  const auto shade = [&](double from, double to, const std::string& text) {
    if (!(to > from) || x.At(to) - x.At(from) < 2.0) return;
    const double left = x.At(from), room = x.At(to) - left;
    if (part == ReelPart::kGround) {
      canvas.Fill(left, plot.y, room, plot.height, kReel);
      return;
    }
    const Style style = {6.0, false, kGrey, Align::kCentre};
    const double wide = canvas.Width(text, style);
    if (wide + 2.0 > room) return;
    canvas.Fill(left + (room - wide) / 2.0 - 0.5, plot.y + 2.0, wide + 1.0, 8.0, kReel);
    canvas.Text(left + room / 2.0, plot.y + 8.0, text, style);
  };
  const EventTable& table = wave.First().trace.table;
  const double zero = wave.a != nullptr ? wave.zeroAKm : wave.zeroBKm;
  if (table.events.empty()) return;
  const double launch = table.events.front().distanceKm - zero, end = table.events.back().distanceKm - zero;
  if (launch < -1e-6) shade(std::max(launch, kms.from), 0.0, texts["launch-reel"]);
  if (end > *wave.lengthKm + 0.005) shade(*wave.lengthKm, std::min(end, kms.to), texts["receive-reel"]);
}

// One of the magnified places.
void DrawCloseUp(Canvas& canvas, const Box& box, const Fibre& fibre, double km, const std::string& title,
                 const Texts& texts) {
  std::vector<Drawn> curves;
  for (const Wave& wave : fibre.waves) {
    const PicturedTrace& picture = wave.First();
    const double zero = wave.a != nullptr ? wave.zeroAKm : wave.zeroBKm;
    const Curve* best = nullptr;
    for (const Curve& curve : picture.closeUps) {
      if (curve.km.empty()) continue;
      const double at = km + zero;
      const bool holds =
          static_cast<double>(curve.km.front()) <= at && at <= static_cast<double>(curve.km.back());
      if (holds && (best == nullptr || curve.km.size() > best->km.size())) best = &curve;
    }
    if (best != nullptr) curves.push_back({best, zero + km, 0.0, false, wave.nm});
  }
  canvas.Text(box.x, box.y + 7.0, title, {7.4, true, kBlack, Align::kLeft, box.width});
  const Box plot = {box.x + kLeft, box.y + 12.0, box.width - kLeft, box.height - 12.0 - kBottom};
  Range kms = {1e9, -1e9};
  for (const Drawn& drawn : curves) {
    kms.from = std::min(kms.from, drawn.X(0));
    kms.to = std::max(kms.to, drawn.X(drawn.curve->km.size() - 1));
  }
  if (!(kms.from < kms.to)) return;
  const Range dbs = LevelsOf(curves, kms);
  const Scale x(kms.from * 1000.0, kms.to * 1000.0, plot.x, plot.x + plot.width);
  const Scale y(dbs.from, dbs.to, plot.y + plot.height, plot.y);
  DrawAxes(canvas, plot, x, y, "m", texts, 4);
  canvas.Line(x.At(0.0), plot.y, x.At(0.0), plot.y + plot.height, kGrey, 0.6);
  const Scale xKm(kms.from, kms.to, plot.x, plot.x + plot.width);
  for (const Drawn& drawn : curves) DrawCurve(canvas, plot, xKm, y, drawn, 0.7);
}

}  // namespace

const Colour* GroundOf(Verdict verdict) {
  switch (verdict) {
    case Verdict::kFail:
      return &kFailRed;
    case Verdict::kWarning:
      return &kWarningYellow;
    case Verdict::kMarginal:
      return &kMarginalYellow;
    case Verdict::kPass:
    case Verdict::kNone:
      break;
  }
  return nullptr;
}

Colour LettersOn(Verdict verdict) { return verdict == Verdict::kFail ? kWhite : kBlack; }

Verdict WorstOf(const EventVerdict& verdict) {
  return std::max({verdict.loss, verdict.reflectance, verdict.attenuation});
}

void DrawCurves(Canvas& canvas, const Box& box, const Fibre& fibre, const Texts& texts) {
  const std::vector<Drawn> curves = CurvesOf(fibre);
  if (curves.empty()) return;
  const Box plot = {box.x + kLeft, box.y + kStrip, box.width - kLeft, box.height - kStrip - kBottom};
  const Range kms = DistancesOf(fibre, curves), dbs = LevelsOf(curves, kms);
  const Scale x(kms.from, kms.to, plot.x, plot.x + plot.width);
  const Scale y(dbs.from, dbs.to, plot.y + plot.height, plot.y);
  DrawReels(canvas, plot, x, fibre, kms, texts, ReelPart::kGround);
  DrawAxes(canvas, plot, x, y, "km", texts, static_cast<int>(plot.height / 28.0));
  DrawReels(canvas, plot, x, fibre, kms, texts, ReelPart::kName);
  DrawLabels(canvas, plot, x, y, fibre, curves, dbs.from);
  for (const Drawn& drawn : curves) DrawCurve(canvas, plot, x, y, drawn, drawn.mirrored ? 0.5 : 0.7);
  DrawLegend(canvas, plot, curves, texts);
}

void DrawCloseUps(Canvas& canvas, const Box& box, const Fibre& fibre, const Texts& texts) {
  if (fibre.waves.empty() || fibre.waves.front().lines.empty()) return;
  const std::vector<EventLine>& lines = fibre.waves.front().lines;
  constexpr double kBetween = 18.0;
  const double half = (box.width - kBetween) / 2.0;
  const auto title = [&](const char* key, double km) { return texts.With(key, texts.Number(km, 4)); };
  DrawCloseUp(canvas, {box.x, box.y, half, box.height}, fibre, lines.front().km,
              title("close-begin", lines.front().km), texts);
  DrawCloseUp(canvas, {box.x + half + kBetween, box.y, half, box.height}, fibre, lines.back().km,
              title("close-end", lines.back().km), texts);
}

void DrawSymbol(Canvas& canvas, double x, double y, double side, const std::string& kind) {
  const double left = x - side / 2.0, right = x + side / 2.0, up = y - side / 2.0, down = y + side / 2.0;
  const auto line = [&](double a, double b, double c, double d) { canvas.Line(a, b, c, d, kBlack, 0.8); };
  if (kind == "kind.reflective" || kind == "kind.saturated" || kind == "kind.begin") {
    line(left, down, x, down), line(x, down, x, up), line(x, up, x + 1.2, down),
        line(x + 1.2, down, right, down);
  } else if (kind == "kind.gain") {
    line(left, down, x, down), line(x, down, x, y - 1.0), line(x, y - 1.0, right, y - 1.0);
  } else if (kind == "kind.launch") {
    line(left, up, left, down), line(left, y, right, y), line(right, y, right - 2.2, y - 2.2),
        line(right, y, right - 2.2, y + 2.2);
  } else if (kind == "kind.end" || kind == "kind.out-of-range") {
    line(left, y, right, y), line(right, up, right, down);
  } else if (kind == "kind.echo") {
    line(left, y, left + 2.0, y), line(x - 0.8, y, x + 0.8, y), line(right - 2.0, y, right, y);
  } else {
    line(left, y - 1.0, x, y - 1.0), line(x, y - 1.0, x, down), line(x, down, right, down);
  }
}

}  // namespace reflyze::paper
