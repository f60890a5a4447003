// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cairo.h>
#include <pango/pangocairo.h>

#include <memory>
#include <string>

namespace reflyze::paper {

constexpr double kPointsPerInch = 72.0;

// Red, green and blue, from 0 to 1.
struct Colour {
  double red = 0.0, green = 0.0, blue = 0.0;
};

constexpr Colour kBlack = {0.10, 0.11, 0.13};
constexpr Colour kGrey = {0.42, 0.44, 0.48};         // of labels
constexpr Colour kPaleGrey = {0.80, 0.82, 0.84};     // of rules
constexpr Colour kFaintGrey = {0.955, 0.96, 0.965};  // of areas
constexpr Colour kWhite = {1.0, 1.0, 1.0};
// Verdicts must be told apart on paper that was printed in grey too: dark with white letters, light with
// black.
constexpr Colour kFailRed = {0.72, 0.09, 0.11};
constexpr Colour kWarningYellow = {1.0, 0.87, 0.25};
constexpr Colour kMarginalYellow = {1.0, 0.96, 0.72};
constexpr Colour kPassGreen = {0.07, 0.45, 0.24};

enum class Align { kLeft, kCentre, kRight };

// How a text is set; sizes are points.
struct Style {
  double size = 8.0;
  bool bold = false;
  Colour colour = kBlack;
  Align align = Align::kLeft;
  double most = 0.0;  // width at which a text is cut, with an ellipsis; 0 for none
};

// A page that is drawn on: places in points from its upper left corner.
class Canvas {
 public:
  // Draws on a surface, which the caller keeps.
  explicit Canvas(cairo_surface_t* surface, double scale = 1.0);
  Canvas(const Canvas&) = delete;
  Canvas& operator=(const Canvas&) = delete;
  ~Canvas();

  // Sets a text on a base line. Texts are taken as they are: no markup has a meaning.
  void Text(double x, double baseline, const std::string& text, const Style& style);
  // The same in smaller letters where the room asks for it: they say more than half a sentence.
  void FittingText(double x, double baseline, const std::string& text, Style style, double least = 5.4);
  double Width(const std::string& text, const Style& style);

  void Fill(double x, double y, double width, double height, const Colour& colour);
  void Frame(double x, double y, double width, double height, const Colour& colour, double line = 0.5);
  void RoundFill(double x, double y, double width, double height, double radius, const Colour& colour);
  void Line(double x, double y, double toX, double toY, const Colour& colour, double line = 0.5);

  // For curves.
  cairo_t* cairo() const { return cairo_; }

 private:
  void Prepare(const std::string& text, const Style& style);

  cairo_t* cairo_;
  PangoLayout* layout_;
  PangoFontDescription* font_;
};

}  // namespace reflyze::paper
