// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cairo.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "paper/Canvas.h"
#include "paper/Job.h"
#include "paper/Texts.h"

namespace reflyze::paper {

// The room of a page, in points.
struct Sheet {
  double width, height;
  static constexpr double kSide = 42.0, kTop = 34.0, kFoot = 34.0;
  static constexpr double kHeadEnd = kTop + 34.0 + 5.0 + 9.0;  // the title, the line below it, and a gap

  explicit Sheet(PaperSize size)
      : width(size == PaperSize::kLetter ? 612.0 : 595.276),
        height(size == PaperSize::kLetter ? 792.0 : 841.89) {}
  double Left() const { return kSide; }
  double Right() const { return width - kSide; }
  double Inner() const { return width - 2.0 * kSide; }
  double Bottom() const { return height - kFoot; }
};

// One page, ready to be drawn.
struct Page {
  std::function<void(Canvas&)> draw;
  std::string bookmark;  // where a reader can jump to; empty on a page that goes on
};

// What all pages share. It outlives them.
struct Setting {
  explicit Setting(const PaperOptions& asked);
  ~Setting();
  Setting(const Setting&) = delete;
  Setting& operator=(const Setting&) = delete;

  PaperOptions options;
  Texts texts;
  Sheet sheet;
  cairo_surface_t* logo = nullptr;
};

// The pages of one fibre: one, and more where its tables are longer.
std::vector<Page> FibrePages(const Fibre& fibre, const Setting& setting);

// The head of a page: the logo, a title with a line below it, and a verdict.
double DrawHead(Canvas& canvas, const Setting& setting, const std::string& title, const std::string& below,
                Verdict verdict);
// The word of a verdict in its colours, its right end at a place.
void DrawVerdict(Canvas& canvas, const Setting& setting, double right, double middle, Verdict verdict,
                 double size);

// The heading of a part of a page.
void DrawPartHeading(Canvas& canvas, const Setting& setting, double y, const std::string& text,
                     const std::string& beside = "");

constexpr double kFactHeight = 20.5;  // points
// A label above its value, cut at a width.
void DrawFact(Canvas& canvas, double x, double y, double width, const std::string& label,
              const std::string& value);

}  // namespace reflyze::paper
