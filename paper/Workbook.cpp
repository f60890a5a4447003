// SPDX-License-Identifier: Apache-2.0
#include "paper/Workbook.h"

#include <unistd.h>
#include <xlsxwriter.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <utility>
#include <vector>

#include "paper/EventTables.h"
#include "paper/Panel.h"
#include "paper/Summary.h"
#include "reflyze/error.h"

namespace reflyze::paper {
namespace {

constexpr lxw_color_t kHeadGround = 0xEEF0F2;
constexpr double kHeadHeight = 31.0;  // of two lines, points

lxw_color_t Rgb(const Colour& colour) {
  const auto part = [](double value) { return static_cast<lxw_color_t>(std::lround(value * 255.0)); };
  return part(colour.red) << 16 | part(colour.green) << 8 | part(colour.blue);
}

// The formats of a workbook, each made once: a workbook has room for some thousand.
class Formats {
 public:
  explicit Formats(lxw_workbook* book) : book_(book) {}
  // Of a number with so many decimals, "> " before one that is at least so much.
  lxw_format* Number(int decimals, Verdict verdict, const char* before = "") {
    const std::string digits = decimals > 0 ? "0." + std::string(static_cast<size_t>(decimals), '0') : "0";
    return Of(before + digits, verdict, false);
  }
  lxw_format* Text(Verdict verdict = Verdict::kNone, bool right = false) {
    return Of(right ? ">" : "", verdict, false);
  }
  lxw_format* Head() { return Of("", Verdict::kNone, true); }

 private:
  lxw_format* Of(const std::string& number, Verdict verdict, bool head) {
    lxw_format*& format = made_[{number, static_cast<int>(verdict) + (head ? 100 : 0)}];
    if (format != nullptr) return format;
    format = workbook_add_format(book_);
    if (number == ">") format_set_align(format, LXW_ALIGN_RIGHT);
    if (number.empty() && !head) format_set_indent(format, 1);  // off the number in front of it
    if (!number.empty() && number != ">") format_set_num_format(format, number.c_str());
    if (const Colour* ground = GroundOf(verdict)) {
      format_set_bg_color(format, Rgb(*ground));
      format_set_font_color(format, Rgb(LettersOn(verdict)));
    }
    if (head) {
      format_set_bold(format);
      format_set_bg_color(format, kHeadGround);
      format_set_bottom(format, LXW_BORDER_THIN);
      format_set_text_wrap(format);
      format_set_align(format, LXW_ALIGN_VERTICAL_TOP);
    }
    return format;
  }

  lxw_workbook* book_;
  std::map<std::pair<std::string, int>, lxw_format*> made_;
};

// A sheet that is filled row by row.
class SheetFiller {
 public:
  SheetFiller(lxw_workbook* book, Formats& formats, const std::string& name, PaperSize size)
      : formats_(formats), sheet_(workbook_add_worksheet(book, name.c_str())) {
    constexpr double kMargin = 0.4, kTopMargin = 0.6;  // inches
    constexpr std::uint8_t kLetter = 1, kA4 = 9;       // as the file format numbers them
    worksheet_set_paper(sheet_, size == PaperSize::kLetter ? kLetter : kA4);
    worksheet_set_landscape(sheet_);
    worksheet_fit_to_pages(sheet_, 1, 0);
    worksheet_set_margins(sheet_, kMargin, kMargin, kTopMargin, kTopMargin);
  }

  void Head(const std::vector<std::pair<std::string, double>>& columns) {
    for (const auto& [text, width] : columns) {
      worksheet_set_column(sheet_, column_, column_, width, nullptr);
      Heading(text);
    }
    // Not every program makes room for a heading of two lines by itself.
    worksheet_set_row(sheet_, row_, kHeadHeight, nullptr);
    lastColumn_ = column_;
    headRow_ = row_;
    Next();
  }
  void Text(const std::string& text, Verdict verdict = Verdict::kNone) {
    worksheet_write_string(sheet_, row_, column_++, Harmless(text).c_str(), formats_.Text(verdict));
  }
  void Heading(const std::string& text) {
    worksheet_write_string(sheet_, row_, column_++, text.c_str(), formats_.Head());
  }
  void Number(std::optional<double> value, int decimals, Verdict verdict = Verdict::kNone,
              bool atLeast = false) {
    if (value) {
      // A number in a workbook has a reader who calculates with it: no more digits than were measured.
      worksheet_write_number(sheet_, row_, column_++, Rounded(*value, decimals),
                             formats_.Number(decimals, verdict, atLeast ? "\"> \"" : ""));
    } else {
      worksheet_write_string(sheet_, row_, column_++, "-", formats_.Text(Verdict::kNone, true));
    }
  }
  // Rounded up and never 0, as everywhere.
  void Deviation(std::optional<double> sd, int decimals) {
    double steps = 1.0;
    for (int i = 0; i < decimals; ++i) steps *= 10.0;
    Number(sd ? std::optional(std::max(std::ceil(*sd * steps - 1e-6), 1.0) / steps) : std::nullopt, decimals);
  }
  void Next() {
    ++row_;
    column_ = 0;
  }
  // The heading stays in sight, and rows can be sifted.
  void Finish() {
    worksheet_freeze_panes(sheet_, headRow_ + 1, 0);
    if (row_ > headRow_ + 1)
      worksheet_autofilter(sheet_, headRow_, 0, row_ - 1, static_cast<lxw_col_t>(lastColumn_ - 1));
    worksheet_repeat_rows(sheet_, headRow_, headRow_);
  }
  lxw_worksheet* sheet() const { return sheet_; }
  lxw_row_t row() const { return row_; }

 private:
  static double Rounded(double value, int decimals) {
    char text[400];
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    const double rounded = std::strtod(text, nullptr);
    return rounded == 0.0 ? 0.0 : rounded;
  }

  Formats& formats_;
  lxw_worksheet* sheet_;
  lxw_row_t row_ = 0, headRow_ = 0;
  lxw_col_t column_ = 0, lastColumn_ = 0;
};

constexpr double kNarrow = 8.0, kUsual = 11.0, kMiddle = 15.0, kWide = 18.0, kFindings = 30.0;

void FillFibres(SheetFiller sheet, const Job& job, const Texts& t) {
  sheet.Head({{t["cable"], kUsual},
              {t["fibre"], kNarrow},
              {t["wavelength"] + ", nm", kUsual},
              {t["from"], kUsual},
              {t["to"], kUsual},
              {t["directions"], kMiddle},
              {t["length"] + ", km", kUsual},
              {t["total-loss"] + ", dB", kUsual},
              {"± dB", kNarrow},
              {t["link-attenuation"] + ", dB/km", kMiddle},
              {t["return-loss"] + ", dB", kUsual},
              {t["splice-heading"] + ", " + t["worst"] + ", dB", kUsual},
              {t["connector-heading"] + ", " + t["worst"] + ", dB", kUsual},
              {t["joints-short"], kNarrow},
              {t["verdict"], kUsual},
              {t["date"], kMiddle},
              {t["findings"] + " A", kWide},
              {t["findings"] + " B", kWide},
              {t["finding-heading"], kFindings}});
  for (const Fibre& fibre : job.fibres) {
    std::string findings;
    for (const std::string& finding : fibre.findings)
      findings += (findings.empty() ? "" : "; ") + t.Told(finding);
    for (size_t w = 0; w < fibre.waves.size(); ++w) {
      const Wave& wave = fibre.waves[w];
      const CableNumbers& numbers = fibre.row.wavelengths[w];
      const LinkVerdict none, &verdict = wave.verdict ? *wave.verdict : none;
      const Card& card = wave.First().card;
      sheet.Text(fibre.cable.empty() ? card.cable : fibre.cable);
      sheet.Text(fibre.name);
      sheet.Number(wave.nm, 0);
      sheet.Text(card.from);
      sheet.Text(card.to);
      sheet.Text(t[wave.merged ? "both" : wave.a != nullptr ? "from-a" : "from-b"]);
      sheet.Number(wave.lengthKm, kLengthDecimals, verdict.length);
      sheet.Number(wave.lossDb, kLossDecimals, verdict.spanLoss);
      sheet.Deviation(wave.lossSdDb, kLossDecimals);
      sheet.Number(wave.lossDb && wave.lengthKm && *wave.lengthKm > 0.0
                       ? std::optional(*wave.lossDb / *wave.lengthKm)
                       : std::nullopt,
                   kLossDecimals, verdict.linkAttenuation);
      sheet.Number(wave.returnLossDb, kReflectanceDecimals, verdict.returnLoss);
      sheet.Number(numbers.worstSpliceDb, kLossDecimals);
      sheet.Number(numbers.worstConnectorDb, kLossDecimals);
      sheet.Number(numbers.events, 0);
      const Verdict worst = findings.empty() ? verdict.verdict : Verdict::kFail;
      sheet.Text(t.WordFor(worst), worst);
      sheet.Text(Texts::Moment(card.dateUtc));
      sheet.Text(wave.a != nullptr ? FileNameOf(wave.a->trace.file) : "");
      sheet.Text(wave.b != nullptr ? FileNameOf(wave.b->trace.file) : "");
      sheet.Text(findings);
      sheet.Next();
    }
    if (!fibre.waves.empty()) continue;
    // Without a trace that could be used, a fibre has its name and what is wrong.
    sheet.Text(fibre.cable);
    sheet.Text(fibre.name);
    for (int i = 0; i < 12; ++i) sheet.Number(std::nullopt, 0);
    sheet.Text(t.WordFor(fibre.verdict), fibre.verdict);
    for (int i = 0; i < 3; ++i) sheet.Text("");
    sheet.Text(findings);
    sheet.Next();
  }
  sheet.Finish();
}

void FillEvents(SheetFiller sheet, const Job& job, const Texts& t) {
  const std::string loss = t["loss"], reflectance = t["reflectance"];
  sheet.Head({{t["cable"], kUsual},
              {t["fibre"], kNarrow},
              {t["wavelength"] + ", nm", kUsual},
              {t["no"], 5.0},
              {t["type"], kMiddle},
              {t["distance"] + ", km", kUsual},
              {"± m", kNarrow},
              {loss + ", dB", kUsual},
              {"± dB", kNarrow},
              {loss + " A, dB", kUsual},
              {"± dB", kNarrow},
              {loss + " B, dB", kUsual},
              {"± dB", kNarrow},
              {reflectance + ", dB", kUsual},
              {"± dB", kNarrow},
              {reflectance + " B, dB", kUsual},
              {t["section"] + ", dB/km", kUsual},
              {"± dB/km", kNarrow},
              {t["cumulated"] + ", dB", kUsual},
              {t["verdict"], kUsual}});
  for (const Fibre& fibre : job.fibres) {
    for (const Wave& wave : fibre.waves) {
      for (const EventLine& line : wave.lines) {
        sheet.Text(fibre.cable.empty() ? wave.First().card.cable : fibre.cable);
        sheet.Text(fibre.name);
        sheet.Number(wave.nm, 0);
        sheet.Number(line.number, 0);
        sheet.Text(t[line.kind]);
        sheet.Number(line.km, kLengthDecimals);
        sheet.Deviation(line.sdM, kMetresDecimals);
        sheet.Number(line.lossDb, kLossDecimals, line.verdict.loss);
        sheet.Deviation(line.lossSdDb, kLossDecimals);
        sheet.Number(line.lossADb, kLossDecimals);
        sheet.Deviation(line.lossASdDb, kLossDecimals);
        sheet.Number(line.lossBDb, kLossDecimals);
        sheet.Deviation(line.lossBSdDb, kLossDecimals);
        sheet.Number(line.reflectanceDb, kReflectanceDecimals, line.verdict.reflectance,
                     line.reflectanceAtLeast);
        sheet.Deviation(line.reflectanceSdDb, kReflectanceDecimals);
        sheet.Number(line.reflectanceBDb, kReflectanceDecimals, Verdict::kNone, line.reflectanceBAtLeast);
        sheet.Number(line.attenuationDbPerKm, kLossDecimals, line.verdict.attenuation);
        sheet.Deviation(line.attenuationSdDbPerKm, kLossDecimals);
        sheet.Number(line.cumulatedDb, kLossDecimals);
        const Verdict worst = WorstOf(line.verdict);
        sheet.Text(t.WordFor(worst), worst);
        sheet.Next();
      }
    }
  }
  sheet.Finish();
}

void FillFigures(SheetFiller& sheet, const Job& job, const Texts& t) {
  sheet.Head({{t["summary"], 30.0},
              {t["number"], kUsual},
              {t["least"], kUsual},
              {t["mean"], kUsual},
              {t["largest"], kUsual},
              {t["sd"], kUsual},
              {"", kFindings}});
  const auto add = [&](const std::string& name, const CableFigures& figures, int decimals) {
    if (figures.count == 0) return;
    sheet.Text(name);
    sheet.Number(figures.count, 0);
    for (const double value : {figures.least, figures.mean, figures.largest}) sheet.Number(value, decimals);
    sheet.Number(figures.count > 1 ? std::optional(figures.sd) : std::nullopt, decimals);
    sheet.Next();
  };
  add(t["length"] + ", km", job.lengthKm, kLengthDecimals);
  for (const CableTotals& totals : job.totals) {
    const std::string at = ", dB, " + std::to_string(totals.wavelengthNm) + " nm";
    add(t["total-loss"] + at, totals.lossDb, kLossDecimals);
    add(t["return-loss"] + at, totals.returnLossDb, kReflectanceDecimals);
    add(t["splices"] + at, totals.spliceDb, kLossDecimals);
  }
  sheet.Next();
}

// The losses of the splices as rows and as a chart of the workbook, which a reader can change.
void FillHistogram(lxw_workbook* book, SheetFiller& sheet, const Job& job, const Texts& t) {
  sheet.Heading(t["splice-losses"] + ", dB");
  sheet.Heading(t["number"]);
  sheet.Next();
  const lxw_row_t first = sheet.row();
  for (size_t i = 0; i < job.histogram.size(); ++i) {
    const double from = kHistogramDb * (static_cast<double>(i) - 1.0);
    const bool last = i + 1 == job.histogram.size();
    sheet.Text(i == 0 ? "< 0" : t.Number(from, 2) + (last ? " …" : " – " + t.Number(from + kHistogramDb, 2)));
    sheet.Number(job.histogram[i], 0);
    sheet.Next();
  }
  const lxw_row_t end = sheet.row() - 1;
  lxw_chart* chart = workbook_add_chart(book, LXW_CHART_COLUMN);
  const std::string name = t["cable"];
  lxw_chart_series* series = chart_add_series(chart, nullptr, nullptr);
  chart_series_set_categories(series, name.c_str(), first, 0, end, 0);
  chart_series_set_values(series, name.c_str(), first, 1, end, 1);
  chart_series_set_name(series, t["number"].c_str());
  chart_title_set_name(chart, t["splice-losses"].c_str());
  chart_axis_set_name(chart->x_axis, "dB");
  // There are no half splices.
  const int most = *std::max_element(job.histogram.begin(), job.histogram.end());
  chart_axis_set_major_unit(chart->y_axis, std::max(1, (most + 4) / 5));
  chart_legend_set_position(chart, LXW_CHART_LEGEND_NONE);
  // As high as its rows, also where a program has lower ones.
  lxw_chart_options place = {};
  place.x_scale = 1.0;
  place.y_scale = 0.8;
  worksheet_insert_chart_opt(sheet.sheet(), first - 1, 3, chart, &place);
  for (int i = 0; i < 3; ++i) sheet.Next();
}

void FillJoints(SheetFiller& sheet, const Job& job, const Texts& t) {
  if (!job.joints.empty()) {
    for (const char* key : {"joints", "type", "n-of-fibres", "mean", "largest", "sd", "bad"})
      sheet.Heading(t[key]);
    sheet.Next();
  }
  for (const CableJoint& joint : job.joints) {
    sheet.Number(joint.km, kLengthDecimals);
    sheet.Text(t[joint.connector ? "connector" : "splice"]);
    sheet.Number(joint.fibres, 0);
    for (const double value : {joint.meanDb, joint.largestDb, joint.sdDb}) sheet.Number(value, kLossDecimals);
    std::string bad;
    for (const std::string& fibre : joint.bad) bad += (bad.empty() ? "" : ", ") + fibre;
    sheet.Text(joint.forAll
                   ? t.With("for-all", std::to_string(joint.bad.size()), std::to_string(joint.fibres))
                   : bad);
    sheet.Next();
  }
  for (const std::string& finding : job.findings) {
    sheet.Next();
    sheet.Text(t.Told(finding));
  }
}

// The library writes files; this one is read and gone.
class PassingFile {
 public:
  PassingFile() : name_((std::filesystem::temp_directory_path() / "reflyze-XXXXXX").string()) {
    const int file = mkstemp(name_.data());
    if (file < 0) throw Error(ErrorKind::kUnwritable, name_, "no passing file can be made");
    close(file);
  }
  PassingFile(const PassingFile&) = delete;
  PassingFile& operator=(const PassingFile&) = delete;
  ~PassingFile() { unlink(name_.c_str()); }
  const std::string& name() const { return name_; }

 private:
  std::string name_;
};

}  // namespace

std::string WorkbookOf(const Job& job, const Setting& setting, const std::string& title) {
  const PassingFile file;
  lxw_workbook* book = workbook_new(file.name().c_str());
  if (book == nullptr) throw Error(ErrorKind::kUnwritable, "", "the workbook can't be made");
  std::string titleText = title, creator = "reflyze";
  lxw_doc_properties properties = {};
  properties.title = titleText.data();
  properties.author = creator.data();
  // Without a day the library takes this moment.
  properties.created = static_cast<time_t>(setting.options.dateUtc > 0 ? setting.options.dateUtc : 1);
  workbook_set_properties(book, &properties);
  Formats formats(book);
  const Texts& texts = setting.texts;
  const PaperSize size = setting.options.size;
  FillFibres(SheetFiller(book, formats, texts["fibres"], size), job, texts);
  FillEvents(SheetFiller(book, formats, texts["events"], size), job, texts);
  SheetFiller cable(book, formats, texts["cable"], size);
  FillFigures(cable, job, texts);
  FillHistogram(book, cable, job, texts);
  FillJoints(cable, job, texts);
  const lxw_error status = workbook_close(book);
  if (status != LXW_NO_ERROR)
    throw Error(ErrorKind::kUnwritable, "",
                std::string("the workbook can't be made: ") + lxw_strerror(status));
  const std::vector<char> bytes = ReadFile(file.name());
  return {bytes.begin(), bytes.end()};
}

}  // namespace reflyze::paper
