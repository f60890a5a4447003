// SPDX-License-Identifier: Apache-2.0
#include "paper/Pages.h"

#include <algorithm>
#include <cstring>

#include "paper/Panel.h"
#include "reflyze/error.h"

namespace reflyze::paper {
namespace {

// No logo needs more; a picture that claims to be larger would take the memory.
constexpr int kLargestLogo = 8192;  // pixels either way

struct Bytes {
  const std::string& all;
  size_t at = 0;
};

cairo_status_t Take(void* from, unsigned char* to, unsigned int length) {
  auto& bytes = *static_cast<Bytes*>(from);
  if (bytes.all.size() - bytes.at < length) return CAIRO_STATUS_READ_ERROR;
  std::memcpy(to, bytes.all.data() + bytes.at, length);
  bytes.at += length;
  return CAIRO_STATUS_SUCCESS;
}

// Width and height stand in the head of every PNG, before anything of their size is made.
bool HasModestSize(const std::string& png) {
  constexpr size_t kWidthAt = 16, kHead = 24;
  if (png.size() < kHead) return false;
  const auto number = [&](size_t at) {
    std::uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i) value = value << 8 | static_cast<unsigned char>(png[at + i]);
    return value;
  };
  const auto modest = [](std::uint32_t side) { return side > 0 && side <= kLargestLogo; };
  return modest(number(kWidthAt)) && modest(number(kWidthAt + 4));
}

// Why a picture can't be the logo, and what helps.
std::string WhatItIs(const std::string& bytes) {
  const std::string start = bytes.substr(0, 512);
  const bool jpeg = start.rfind("\xFF\xD8\xFF", 0) == 0;
  const bool svg = start.find("<svg") != std::string::npos || start.rfind("<?xml", 0) == 0;
  if (!jpeg && !svg) return "no PNG picture that can be shown";
  return std::string(jpeg ? "a JPEG" : "an SVG") + " picture; reports take PNG: export it as PNG, " +
         (svg ? "some 1000 pixels wide" : "which any viewer of pictures does");
}

cairo_surface_t* ReadLogo(const std::string& png) {
  Bytes bytes{png};
  cairo_surface_t* logo =
      HasModestSize(png) ? cairo_image_surface_create_from_png_stream(Take, &bytes) : nullptr;
  if (logo != nullptr && cairo_surface_status(logo) == CAIRO_STATUS_SUCCESS) return logo;
  if (logo != nullptr) cairo_surface_destroy(logo);
  throw Error(ErrorKind::kUsage, "", "the logo is " + WhatItIs(png));
}

double DrawLogo(Canvas& canvas, const Setting& setting, double top, double height) {
  if (setting.logo == nullptr) return 0.0;
  constexpr double kWidest = 130.0;
  const double wide = cairo_image_surface_get_width(setting.logo),
               high = cairo_image_surface_get_height(setting.logo);
  const double scale = std::min(height / high, kWidest / wide);
  cairo_t* cairo = canvas.cairo();
  cairo_save(cairo);
  cairo_translate(cairo, setting.sheet.Left(), top + (height - high * scale) / 2.0);
  cairo_scale(cairo, scale, scale);
  cairo_set_source_surface(cairo, setting.logo, 0.0, 0.0);
  cairo_paint(cairo);
  cairo_restore(cairo);
  return wide * scale + 14.0;
}

}  // namespace

Setting::Setting(const PaperOptions& asked) : options(asked), texts(asked.language), sheet(asked.size) {
  if (!asked.logo.empty()) logo = ReadLogo(asked.logo);
}

Setting::~Setting() {
  if (logo != nullptr) cairo_surface_destroy(logo);
}

void DrawVerdict(Canvas& canvas, const Setting& setting, double right, double middle, Verdict verdict,
                 double size) {
  if (verdict == Verdict::kNone) return;
  const std::string word = setting.texts[std::string("verdict.") + WordOf(verdict)];
  const Colour* ground = GroundOf(verdict);
  Style style = {size, true, LettersOn(verdict), Align::kCentre};
  const double width = canvas.Width(word, style) + 1.6 * size, height = 1.9 * size;
  if (verdict == Verdict::kPass) ground = &kPassGreen, style.colour = kWhite;
  canvas.RoundFill(right - width, middle - height / 2.0, width, height, 3.0, ground ? *ground : kFaintGrey);
  canvas.Text(right - width / 2.0, middle + 0.36 * size, word, style);
}

double DrawHead(Canvas& canvas, const Setting& setting, const std::string& title, const std::string& below,
                Verdict verdict) {
  constexpr double kHeight = 34.0;
  const Sheet& sheet = setting.sheet;
  const double beside = DrawLogo(canvas, setting, Sheet::kTop, kHeight);
  constexpr double kVerdictRoom = 90.0, kLeastTitle = 9.0;
  const double room = sheet.Inner() - beside - (verdict == Verdict::kNone ? 0.0 : kVerdictRoom);
  canvas.FittingText(sheet.Left() + beside, Sheet::kTop + 15.0, title,
                     {16.0, true, kBlack, Align::kLeft, room}, kLeastTitle);
  canvas.FittingText(sheet.Left() + beside, Sheet::kTop + 29.0, below,
                     {8.6, false, kGrey, Align::kLeft, room});
  DrawVerdict(canvas, setting, sheet.Right(), Sheet::kTop + 14.0, verdict, 11.0);
  const double end = Sheet::kTop + kHeight + 5.0;
  canvas.Line(sheet.Left(), end, sheet.Right(), end, kBlack, 1.0);
  return end + 9.0;
}

void DrawPartHeading(Canvas& canvas, const Setting& setting, double y, const std::string& text,
                     const std::string& beside) {
  const Style style = {8.8, true, kBlack};
  canvas.Text(setting.sheet.Left(), y, text, style);
  canvas.Text(setting.sheet.Left() + canvas.Width(text, style) + 8.0, y, beside,
              {7.4, false, kGrey, Align::kLeft, setting.sheet.Inner() - canvas.Width(text, style) - 8.0});
}

void DrawFact(Canvas& canvas, double x, double y, double width, const std::string& label,
              const std::string& value) {
  canvas.Text(x, y + 6.0, label, {6.4, false, kGrey, Align::kLeft, width});
  canvas.FittingText(x, y + 15.4, value, {8.2, false, kBlack, Align::kLeft, width});
}

}  // namespace reflyze::paper
