// SPDX-License-Identifier: Apache-2.0
#include "paper/Document.h"

#include <cairo-pdf.h>
#include <cairo-svg.h>

#include <cmath>
#include <map>
#include <memory>
#include <regex>

#include "reflyze/error.h"

namespace reflyze::paper {
namespace {

constexpr double kPixelsPerInch = 150.0;  // fine enough to be read, and to be printed

cairo_status_t Append(void* to, const unsigned char* bytes, unsigned int length) {
  static_cast<std::string*>(to)->append(reinterpret_cast<const char*>(bytes), length);
  return CAIRO_STATUS_SUCCESS;
}

struct SurfaceEnd {
  void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
using Surface = std::unique_ptr<cairo_surface_t, SurfaceEnd>;

void Require(cairo_status_t status) {
  if (status != CAIRO_STATUS_SUCCESS)
    throw Error(ErrorKind::kUnwritable, "",
                std::string("the report can't be drawn: ") + cairo_status_to_string(status));
}

void Finish(const Surface& surface) {
  cairo_surface_finish(surface.get());
  Require(cairo_surface_status(surface.get()));
}

// Names of surfaces count up as long as the process lives. They are counted anew, so that the same page is
// the same file. Letters are outlines here, so that no text of the page can look like such a name.
std::string WithNamesCountedAnew(const std::string& svg) {
  static const std::regex name("(surface|image)([0-9]+)");
  std::map<std::string, std::string> names;
  std::string anew;
  size_t done = 0;
  for (std::sregex_iterator at(svg.begin(), svg.end(), name), end; at != end; ++at) {
    const auto found = names.emplace(at->str(), (*at)[1].str() + std::to_string(names.size() + 1)).first;
    anew.append(svg, done, static_cast<size_t>(at->position()) - done);
    anew += found->second;
    done = static_cast<size_t>(at->position() + at->length());
  }
  return anew.append(svg, done, std::string::npos);
}

}  // namespace

std::string PdfOf(const std::vector<Page>& pages, const Setting& setting, const std::string& title) {
  std::string bytes;
  const Surface surface(
      cairo_pdf_surface_create_for_stream(Append, &bytes, setting.sheet.width, setting.sheet.height));
  cairo_surface_t* pdf = surface.get();
  cairo_pdf_surface_set_metadata(pdf, CAIRO_PDF_METADATA_TITLE, title.c_str());
  cairo_pdf_surface_set_metadata(pdf, CAIRO_PDF_METADATA_CREATOR, "reflyze");
  // The same traces give the same bytes: the day is that of the report, and no moment of today is in it.
  const std::string day = Texts::Day(setting.options.dateUtc);
  cairo_pdf_surface_set_metadata(pdf, CAIRO_PDF_METADATA_CREATE_DATE,
                                 (day == "-" ? "1970-01-01" : day).c_str());
  {
    Canvas canvas(pdf);
    for (size_t i = 0; i < pages.size(); ++i) {
      if (!pages[i].bookmark.empty() && pages.size() > 1) {
        const std::string place = "page=" + std::to_string(i + 1) + " pos=[0 0]";
        cairo_pdf_surface_add_outline(pdf, CAIRO_PDF_OUTLINE_ROOT, pages[i].bookmark.c_str(), place.c_str(),
                                      static_cast<cairo_pdf_outline_flags_t>(0));
      }
      pages[i].draw(canvas);
      cairo_surface_show_page(pdf);
    }
    Require(cairo_status(canvas.cairo()));
  }
  Finish(surface);
  return bytes;
}

std::string SvgOf(const Page& page, const Setting& setting) {
  std::string bytes;
  const Surface surface(
      cairo_svg_surface_create_for_stream(Append, &bytes, setting.sheet.width, setting.sheet.height));
  {
    Canvas canvas(surface.get());
    canvas.Fill(0.0, 0.0, setting.sheet.width, setting.sheet.height, kWhite);
    page.draw(canvas);
    Require(cairo_status(canvas.cairo()));
  }
  Finish(surface);
  return WithNamesCountedAnew(bytes);
}

std::string PngOf(const Page& page, const Setting& setting) {
  constexpr double kScale = kPixelsPerInch / kPointsPerInch;
  const auto pixels = [](double points) { return static_cast<int>(std::lround(points * kScale)); };
  const Surface surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, pixels(setting.sheet.width),
                                                   pixels(setting.sheet.height)));
  {
    Canvas canvas(surface.get(), kScale);
    canvas.Fill(0.0, 0.0, setting.sheet.width + 1.0, setting.sheet.height + 1.0, kWhite);
    page.draw(canvas);
    Require(cairo_status(canvas.cairo()));
  }
  std::string bytes;
  Require(cairo_surface_write_to_png_stream(surface.get(), Append, &bytes));
  return bytes;
}

std::vector<std::string> PictureNames(const std::string& file, size_t pictures) {
  if (pictures == 1) return {file};
  const size_t dot = file.rfind('.');
  const size_t digits = std::to_string(pictures).size();
  std::vector<std::string> names;
  for (size_t i = 1; i <= pictures; ++i) {
    const std::string number = std::to_string(i);
    names.push_back(file.substr(0, dot) + "-" + std::string(digits - number.size(), '0') + number +
                    file.substr(dot));
  }
  return names;
}

}  // namespace reflyze::paper
