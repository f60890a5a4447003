// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <iterator>

#include "paper/Cover.h"
#include "paper/Document.h"
#include "paper/Job.h"
#include "paper/Pages.h"
#include "paper/Workbook.h"
#include "reflyze/error.h"
#include "reflyze/paper.h"

namespace reflyze {
namespace {

using namespace paper;

std::string EndingOf(const std::string& file) {
  const size_t dot = file.rfind('.'), slash = file.rfind('/');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
  std::string ending = file.substr(dot);
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char c) { return std::tolower(c); });
  return ending;
}

// What stands at the foot of each page: by what it was judged, what signs mean, and which page it is.
void DrawFoot(Canvas& canvas, const Setting& setting, size_t page, size_t pages) {
  const Sheet& sheet = setting.sheet;
  const double y = sheet.height - 20.0;
  canvas.Line(sheet.Left(), y - 9.0, sheet.Right(), y - 9.0, kPaleGrey, 0.4);
  const Style style = {6.4, false, kGrey, Align::kLeft, sheet.Inner() - 130.0};
  std::string left = setting.texts["note"];
  if (setting.options.limits && !Harmless(setting.options.limits->name).empty())
    left = setting.texts.With("limits", Harmless(setting.options.limits->name)) + "   ·   " + left;
  canvas.Text(sheet.Left(), y, left, style);
  Style right = style;
  right.align = Align::kRight;
  right.most = 0.0;
  std::string text = setting.texts.With("page", std::to_string(page), std::to_string(pages));
  const std::string day = Texts::Day(setting.options.dateUtc);
  if (day != "-") text = day + "   ·   " + text;
  canvas.Text(sheet.Right(), y, text, right);
}

std::vector<Page> WithFeet(std::vector<Page> pages, const Setting& setting) {
  const size_t count = pages.size();
  for (size_t i = 0; i < count; ++i) {
    const auto draw = std::move(pages[i].draw);
    pages[i].draw = [draw, i, count, &setting](Canvas& canvas) {
      draw(canvas);
      DrawFoot(canvas, setting, i + 1, count);
    };
  }
  return pages;
}

std::string TitleOf(const Setting& setting) {
  const std::string title = Harmless(setting.options.title);
  return title.empty() ? setting.texts["report"] : title;
}

std::vector<Page> PagesOf(const Job& job, const Setting& setting) {
  std::vector<Page> fibres;
  std::vector<std::optional<size_t>> firstPages;
  for (const Fibre& fibre : job.fibres) {
    std::vector<Page> own = FibrePages(fibre, setting);
    firstPages.push_back(own.empty() ? std::nullopt : std::optional<size_t>(fibres.size()));
    std::move(own.begin(), own.end(), std::back_inserter(fibres));
  }
  // One fibre needs no summary, unless there is something to say of its files.
  if (fibres.empty() || (job.fibres.size() == 1 && job.findings.empty()))
    return WithFeet(std::move(fibres), setting);
  std::vector<Page> pages = CoverPages(job, firstPages, TitleOf(setting), setting);
  std::move(fibres.begin(), fibres.end(), std::back_inserter(pages));
  return WithFeet(std::move(pages), setting);
}

}  // namespace

std::vector<std::string> PaperEndings() { return {".pdf", ".svg", ".png", ".xlsx"}; }

std::vector<Output> ReportOf(const std::string& file, const std::vector<PicturedTrace>& traces,
                             const PaperOptions& options) {
  const std::string ending = EndingOf(file);
  const std::vector<std::string> known = PaperEndings();
  if (std::find(known.begin(), known.end(), ending) == known.end())
    throw Error(ErrorKind::kUsage, file, "its ending names no kind of report");
  const Setting setting(options);
  if (traces.empty()) return {};
  const Job job = MakeJob(traces, options);
  if (job.fibres.empty()) throw Error(ErrorKind::kUnreadable, "", "no trace shows a fibre to report on");
  if (ending == ".xlsx") return {{file, WorkbookOf(job, setting, TitleOf(setting))}};
  const std::vector<Page> pages = PagesOf(job, setting);
  if (pages.empty()) throw Error(ErrorKind::kUnreadable, "", "no trace shows a fibre to report on");
  if (ending == ".pdf") return {{file, PdfOf(pages, setting, TitleOf(setting))}};
  const std::vector<std::string> names = PictureNames(file, pages.size());
  std::vector<Output> outputs;
  for (size_t i = 0; i < pages.size(); ++i)
    outputs.push_back({names[i], ending == ".svg" ? SvgOf(pages[i], setting) : PngOf(pages[i], setting)});
  return outputs;
}

}  // namespace reflyze
