// SPDX-License-Identifier: Apache-2.0
#include "paper/Canvas.h"

#include <algorithm>

namespace reflyze::paper {
namespace {

// Figures of equal width, and the letters of many languages. What a font lacks comes from another one.
constexpr const char* kFonts = "Liberation Sans, Arial, DejaVu Sans, sans-serif";

void SetColour(cairo_t* cairo, const Colour& colour) {
  cairo_set_source_rgb(cairo, colour.red, colour.green, colour.blue);
}

}  // namespace

Canvas::Canvas(cairo_surface_t* surface, double scale)
    : cairo_(cairo_create(surface)),
      layout_(pango_cairo_create_layout(cairo_)),
      font_(pango_font_description_from_string(kFonts)) {
  cairo_scale(cairo_, scale, scale);
  // A page has no pixels: letters stand where they belong, and are as wide as on every other page.
  cairo_font_options_t* options = cairo_font_options_create();
  cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
  cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
  cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
  PangoContext* context = pango_layout_get_context(layout_);
  pango_cairo_context_set_font_options(context, options);
  pango_cairo_context_set_resolution(context, kPointsPerInch);
  pango_context_set_round_glyph_positions(context, FALSE);
  // Of whoever asks for the report, the fonts must not depend.
  pango_context_set_language(context, pango_language_from_string("en"));
  cairo_font_options_destroy(options);
  pango_layout_context_changed(layout_);
  pango_layout_set_single_paragraph_mode(layout_, TRUE);
}

Canvas::~Canvas() {
  pango_font_description_free(font_);
  g_object_unref(layout_);
  cairo_destroy(cairo_);
}

void Canvas::Prepare(const std::string& text, const Style& style) {
  pango_font_description_set_absolute_size(font_, style.size * PANGO_SCALE);
  pango_font_description_set_weight(font_, style.bold ? PANGO_WEIGHT_BOLD : PANGO_WEIGHT_NORMAL);
  pango_layout_set_font_description(layout_, font_);
  pango_layout_set_text(layout_, text.data(), static_cast<int>(text.size()));
  pango_layout_set_ellipsize(layout_, style.most > 0.0 ? PANGO_ELLIPSIZE_END : PANGO_ELLIPSIZE_NONE);
  pango_layout_set_width(layout_, style.most > 0.0 ? static_cast<int>(style.most * PANGO_SCALE) : -1);
}

double Canvas::Width(const std::string& text, const Style& style) {
  Prepare(text, style);
  PangoRectangle extents;
  pango_layout_get_extents(layout_, nullptr, &extents);
  return static_cast<double>(extents.width) / PANGO_SCALE;
}

void Canvas::Text(double x, double baseline, const std::string& text, const Style& style) {
  if (text.empty()) return;
  const double width = Width(text, style);
  if (style.align == Align::kRight) x -= width;
  if (style.align == Align::kCentre) x -= width / 2.0;
  SetColour(cairo_, style.colour);
  cairo_move_to(cairo_, x, baseline);
  pango_cairo_show_layout_line(cairo_, pango_layout_get_line_readonly(layout_, 0));
}

void Canvas::FittingText(double x, double baseline, const std::string& text, Style style, double least) {
  const double most = style.most;
  style.most = 0.0;
  const double wanted = Width(text, style);
  if (wanted > most) style.size = std::max(style.size * most / wanted, std::min(least, style.size));
  style.most = most + 0.5;
  Text(x, baseline, text, style);
}

void Canvas::Fill(double x, double y, double width, double height, const Colour& colour) {
  SetColour(cairo_, colour);
  cairo_rectangle(cairo_, x, y, width, height);
  cairo_fill(cairo_);
}

void Canvas::Frame(double x, double y, double width, double height, const Colour& colour, double line) {
  SetColour(cairo_, colour);
  cairo_set_line_width(cairo_, line);
  cairo_rectangle(cairo_, x, y, width, height);
  cairo_stroke(cairo_);
}

void Canvas::RoundFill(double x, double y, double width, double height, double radius, const Colour& colour) {
  constexpr double kQuarter = 1.5707963267948966;
  SetColour(cairo_, colour);
  cairo_new_sub_path(cairo_);
  cairo_arc(cairo_, x + width - radius, y + radius, radius, -kQuarter, 0.0);
  cairo_arc(cairo_, x + width - radius, y + height - radius, radius, 0.0, kQuarter);
  cairo_arc(cairo_, x + radius, y + height - radius, radius, kQuarter, 2.0 * kQuarter);
  cairo_arc(cairo_, x + radius, y + radius, radius, 2.0 * kQuarter, 3.0 * kQuarter);
  cairo_close_path(cairo_);
  cairo_fill(cairo_);
}

void Canvas::Line(double x, double y, double toX, double toY, const Colour& colour, double line) {
  SetColour(cairo_, colour);
  cairo_set_line_width(cairo_, line);
  cairo_move_to(cairo_, x, y);
  cairo_line_to(cairo_, toX, toY);
  cairo_stroke(cairo_);
}

}  // namespace reflyze::paper
