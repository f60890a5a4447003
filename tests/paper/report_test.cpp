// SPDX-License-Identifier: Apache-2.0

// Reports as those see them who read them: by the text that a reader finds in a PDF, and by the picture of a
// page.

#include <cairo.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include "paper/Texts.h"
#include "reflyze/error.h"
#include "reflyze/paper.h"
#include "reflyze/span.h"

namespace reflyze {
namespace {

const std::string kExamples = std::string(REFLYZE_SOURCE_DIR) + "/examples/";
constexpr long long kDay = 1767225600;  // 2026-01-01

// A picture in grey.
struct Picture {
  explicit Picture(const std::string& file) : surface(cairo_image_surface_create_from_png(file.c_str())) {
    EXPECT_EQ(cairo_surface_status(surface), CAIRO_STATUS_SUCCESS) << file;
    width = cairo_image_surface_get_width(surface);
    height = cairo_image_surface_get_height(surface);
  }
  Picture(const Picture&) = delete;
  Picture& operator=(const Picture&) = delete;
  ~Picture() { cairo_surface_destroy(surface); }
  int At(int x, int y) const {
    const unsigned char* row =
        cairo_image_surface_get_data(surface) + y * cairo_image_surface_get_stride(surface);
    return row[4 * x + 1];
  }

  cairo_surface_t* surface;
  int width, height;
};

class ReportTest : public testing::Test {
 protected:
  ReportTest() {
    std::string pattern = (std::filesystem::temp_directory_path() / "reflyze-paper-XXXXXX").string();
    folder_ = mkdtemp(pattern.data());
    options_.dateUtc = kDay;
  }
  ~ReportTest() override { std::filesystem::remove_all(folder_); }

  static PicturedTrace Example(const std::string& name) { return PictureOf(Trace::Open(kExamples + name)); }
  static const PicturedTrace& Metro() {
    static const PicturedTrace metro = Example("metro-40km.sor");
    return metro;
  }

  std::string Store(const Output& output) const {
    const std::string place = folder_ + "/" + output.name;
    std::ofstream(place, std::ios::binary) << output.bytes;
    return place;
  }
  // What a program of the system says of a file; the tests need it, so that its absence is a failure.
  static std::string Said(const std::string& command) {
    std::string said;
    FILE* pipe = popen(command.c_str(), "r");
    for (std::array<char, 4096> part = {}; std::fgets(part.data(), part.size(), pipe) != nullptr;)
      said += part.data();
    EXPECT_EQ(pclose(pipe), 0) << command << " (package poppler-utils)";
    return said;
  }
  std::string TextOfPdf(const std::vector<PicturedTrace>& traces) const {
    const std::vector<Output> files = ReportOf("report.pdf", traces, options_);
    return Said("pdftotext -layout " + Store(files.at(0)) + " -");
  }

  // Lines without the blanks in front of them.
  static std::string Unindented(const std::string& text) {
    std::string plain;
    bool begun = false;
    for (const char c : text) {
      begun = c != '\n' && (begun || c != ' ');
      if (begun || c == '\n') plain += c;
    }
    return plain;
  }

  static void ExpectHas(const std::string& text, const std::vector<std::string>& words) {
    for (const std::string& word : words)
      EXPECT_NE(text.find(word), std::string::npos) << word << " in\n" << text;
  }

  std::string folder_;
  PaperOptions options_;
};

TEST_F(ReportTest, APageTellsWhoWhatWhereAndWhenAndEveryEvent) {
  const std::string text = TextOfPdf({Metro()});
  ExpectHas(text, {"Fibre 1", "Cable metro 40 km", "2026-01-01 00:00", "1550.0 nm", "300 ns", "55.000 km",
                   "1.46800", "30000", "Link loss", "8.296", "31.84", "Page 1 of 1"});
  // Numbers are those of the table, to the decimals by which they are judged.
  const paper::Texts texts("en");
  for (const Event& event : Metro().trace.table.events) {
    ExpectHas(text, {texts.Number(event.distanceKm, 4), texts.Number(event.lossDb, 3),
                     texts.Number(event.reflectanceDb, 2), texts.Number(event.attenuationDbPerKm, 3)});
  }
}

TEST_F(ReportTest, TheSameTracesGiveTheSameBytesWithFontsInThem) {
  const std::vector<Output> pdf = ReportOf("report.pdf", {Metro()}, options_);
  for (const char* name : {"report.pdf", "report.svg", "report.png"}) {
    const std::vector<Output> once = ReportOf(name, {Metro()}, options_),
                              again = ReportOf(name, {Metro()}, options_);
    ASSERT_EQ(once.size(), 1u) << name;
    EXPECT_EQ(once[0].name, name);
    EXPECT_TRUE(once[0].bytes == again[0].bytes) << name;
  }
  const std::string fonts = Said("pdffonts " + Store(pdf[0]) + " | tail -n +3");
  ASSERT_FALSE(fonts.empty());
  for (size_t at = 0; at < fonts.size(); at = fonts.find('\n', at) + 1) {
    const std::string line = fonts.substr(at, fonts.find('\n', at) - at);
    EXPECT_NE(line.find(" yes yes yes"), std::string::npos) << "embedded, a part, with letters: " << line;
  }
}

// Fonts of another system differ by a little; a table or a curve that is lost or moved differs by much.
TEST_F(ReportTest, APageLooksAsItDid) {
  const Picture stored(std::string(REFLYZE_SOURCE_DIR) + "/tests/paper/metro-40km.png");
  const std::string pdf = Store(ReportOf("report.pdf", {Metro()}, options_)[0]);
  Said("pdftoppm -r 36 -gray -png -singlefile " + pdf + " " + folder_ + "/now");
  const Picture now(folder_ + "/now.png");
  ASSERT_EQ(now.width, stored.width);
  ASSERT_EQ(now.height, stored.height);
  constexpr int kMuch = 80;
  int other = 0;
  for (int y = 0; y < now.height; ++y) {
    for (int x = 0; x < now.width; ++x) other += std::abs(now.At(x, y) - stored.At(x, y)) > kMuch ? 1 : 0;
  }
  EXPECT_LT(other, now.width * now.height / 200);
}

TEST_F(ReportTest, VerdictsAreInWordsAndColours) {
  options_.limits =
      Limits::FromText("l.ini", "[limits]\nname = strict\n[one way]\nsplice_db = 0.2\nconnector_db = 0.5\n");
  ExpectHas(TextOfPdf({Metro()}), {"Limits: strict", "pass", "fail"});
  const std::string failing = ReportOf("r.svg", {Metro()}, options_)[0].bytes;
  options_.limits =
      Limits::FromText("l.ini", "[one way]\nsplice_db = 0.5\nsplice_db.warning = 0.2\nconnector_db = 0.5\n");
  const std::string warning = ReportOf("r.svg", {Metro()}, options_)[0].bytes;
  const std::string red = "rgb(72%,9%,11%)", yellow = "rgb(100%,87%,25%)";
  EXPECT_NE(failing.find(red), std::string::npos);
  EXPECT_EQ(failing.find(yellow), std::string::npos);
  EXPECT_EQ(warning.find(red), std::string::npos);
  EXPECT_NE(warning.find(yellow), std::string::npos);
  options_.limits.reset();
  EXPECT_EQ(TextOfPdf({Metro()}).find("pass"), std::string::npos) << "nothing was judged";
}

TEST_F(ReportTest, WhatWasNotMeasuredIsADashAndASaturatedReflectanceAtLeast) {
  PicturedTrace trace = Metro();
  Event& event = trace.trace.table.events[1];
  event.lossDb = event.lossSdDb = std::nullopt;
  event.reflectanceAtLeast = true;
  const std::string text = TextOfPdf({trace});
  const size_t row = text.find("1.0213");
  ASSERT_NE(row, std::string::npos);
  const std::string line = text.substr(row, text.find('\n', row) - row);
  EXPECT_NE(line.find(" - "), std::string::npos) << line;
  EXPECT_NE(line.find("> -52.01"), std::string::npos) << line;
  EXPECT_EQ(line.find("0.350"), std::string::npos) << line;
}

TEST_F(ReportTest, BothDirectionsAndUnrelatedTracesFindTheirPages) {
  PicturedTrace back = Metro();
  back.trace.file = "back.sor";
  back.trace.direction = "B";
  back.trace.samples += 1;
  std::reverse(back.trace.table.events.begin() + 1, back.trace.table.events.end() - 1);
  const double end = back.trace.table.events.back().distanceKm;
  for (size_t i = 1; i + 1 < back.trace.table.events.size(); ++i)
    back.trace.table.events[i].distanceKm = end - back.trace.table.events[i].distanceKm;
  // A section that fails is seen in the table of both.
  options_.limits = Limits::FromText("l.ini", "[mean of two]\nattenuation_db_per_km@1550 = 0.15\n");
  const std::string both = TextOfPdf({Metro(), back});
  ExpectHas(both, {"both directions", "Loss A", "Loss B", "Mean", "Section", "Page 1 of 1", "fail"});
  const MergedLink link = MergeBetweenReels(Metro().trace.table, back.trace.table, {}, {});
  for (const MergedEvent& row : link.table.rows) {
    if (row.attenuationDbPerKm) ExpectHas(both, {paper::Texts("en").Number(row.attenuationDbPerKm, 3)});
  }
  options_.limits.reset();
  // Another fibre that an instrument calls "1" too is no direction of this one.
  ExpectHas(TextOfPdf({Metro(), Example("access-2km.sor")}), {"2 fibres", "Page 3 of 3"});
}

// A cable of four fibres: one fails a limit, one is a copy of another.
std::vector<PicturedTrace> FourFibres(const PicturedTrace& metro) {
  std::vector<PicturedTrace> traces;
  for (int i = 1; i <= 4; ++i) {
    PicturedTrace trace = metro;
    trace.trace.cable = "K 7";
    trace.trace.fibre = "00" + std::to_string(i);
    trace.trace.file = "K7_00" + std::to_string(i) + "_1550.sor";
    trace.trace.samples += static_cast<std::uint64_t>(i == 4 ? 3 : i);
    trace.trace.table.events[4].lossDb = i == 2 ? 0.45 : 0.14;
    traces.push_back(trace);
  }
  return traces;
}

TEST_F(ReportTest, TheSummaryHasFailuresFirstAndTheirPages) {
  options_.limits = Limits::FromText("l.ini", "[one way]\nsplice_db = 0.4\nconnector_db = 0.5\n");
  options_.title = "Acceptance of K 7";
  const std::string text = TextOfPdf(FourFibres(Metro()));
  const std::string cover = text.substr(0, text.find('\f'));
  ExpectHas(cover, {"Acceptance of K 7", "4 fibres", "Page 1 of 4",
                    "K7_004_1550.sor is the same trace as K7_003_1550.sor", "Splice losses",
                    "Joints at the same place", "0.450"});
  // Rows: 002 and 004 fail and stand before 001 and 003; 002 is on page 3, 004 has no page of its own.
  const size_t rows = cover.find("worst, dB");
  ASSERT_NE(rows, std::string::npos);
  std::vector<size_t> at;
  for (const char* fibre : {"\n002", "\n004", "\n001", "\n003"}) at.push_back(Unindented(cover).find(fibre));
  EXPECT_TRUE(std::is_sorted(at.begin(), at.end())) << cover;
  const auto page = [&](size_t line) {
    const std::string plain = Unindented(cover);
    const size_t end = plain.find('\n', line + 1), last = plain.find_last_not_of(' ', end - 1);
    return plain.substr(plain.find_last_of(' ', last) + 1, last - plain.find_last_of(' ', last));
  };
  EXPECT_EQ(page(at[0]), "3");
  EXPECT_EQ(page(at[1]), "-");
  EXPECT_EQ(page(at[3]), "4");
  options_.language = "de";
  ExpectHas(TextOfPdf(FourFibres(Metro())), {"K7_004_1550.sor ist dieselbe Messung wie K7_003_1550.sor"});
}

// Whatever the library says of files and fibres is said in every language; a sentence that changes there is
// seen.
TEST_F(ReportTest, SentencesOfTheLibraryAreTranslated) {
  std::vector<PicturedTrace> traces = FourFibres(Metro());
  traces[3].trace.samples += 77;
  traces[3].trace.table.events.back().distanceKm = 31.9;
  traces[3].trace.table.lengthKm = 31.9;
  traces[0].trace.recordFibre = "9";
  traces[1].trace.recordNm = 1310;
  traces.push_back(traces[2]);
  traces[4].trace.samples += 5;
  traces[4].trace.dateUtc += 60;
  traces[4].trace.direction = traces[2].trace.direction = "A";
  std::vector<CableTrace> plain;
  for (const PicturedTrace& trace : traces) plain.push_back(trace.trace);
  const CableReport report = MakeCable(plain);
  std::vector<std::string> said = report.findings;
  for (const CableRow& row : report.rows) said.insert(said.end(), row.findings.begin(), row.findings.end());
  EXPECT_GE(said.size(), 4u);
  for (const char* language : {"de", "fr", "es"}) {
    const paper::Texts texts(language);
    for (const std::string& sentence : said) EXPECT_NE(texts.Told(sentence), sentence) << language;
  }
  EXPECT_EQ(paper::Texts("en").Told(said[0]), said[0]);
  EXPECT_EQ(paper::Texts("de").Told("no sentence of ours"), "no sentence of ours");
}

TEST_F(ReportTest, AWorkbookHasNumbersAndNoFormulas) {
  options_.limits = Limits::FromText("l.ini", "[one way]\nsplice_db = 0.4\nconnector_db = 0.5\n");
  std::vector<PicturedTrace> traces = FourFibres(Metro());
  for (PicturedTrace& trace : traces) trace.trace.cable = "=1+1";
  traces[0].card.from = "@SUM(A1)";
  traces[0].card.to = "<b>&\x01";
  traces[0].trace.table.events[1].reflectanceAtLeast = true;
  const std::vector<Output> once = ReportOf("r.xlsx", traces, options_);
  EXPECT_TRUE(once[0].bytes == ReportOf("r.xlsx", traces, options_)[0].bytes);
  const std::string script =
      "import openpyxl\n"
      "book = openpyxl.load_workbook(\"" +
      Store(once[0]) +
      "\")\n"
      "print(book.sheetnames, len(book[\"Cable\"]._charts))\n"
      "for sheet in book:\n"
      "  for row in sheet.iter_rows():\n"
      "    for cell in row:\n"
      "      if cell.value is not None:\n"
      "        print(sheet.title, cell.coordinate, cell.data_type, repr(cell.value), cell.number_format, "
      "cell.fill.fgColor.rgb)\n";
  const std::string program = Store({"read.py", script});
  const std::string cells = Said("/usr/bin/python3 " + program);
  ExpectHas(cells, {"['Fibres', 'Events', 'Cable'] 1", "Fibres A2 s '=1+1'", "s '@SUM(A1)'", "s '<b>&?'",
                    "n 0.45 0.000 FFB81", "n 40.0507 0.0000", "n -52.01 \"> \"0.00", "s 'fail'"});
  EXPECT_EQ(cells.find(" f "), std::string::npos) << "a formula";
}

TEST_F(ReportTest, EachPictureOfSeveralIsAFileOfItsOwn) {
  const std::vector<Output> files =
      ReportOf("folder.x/r.png", {Metro(), Example("access-2km.sor")}, options_);
  ASSERT_EQ(files.size(), 3u) << "a summary and two fibres";
  for (size_t i = 0; i < 3; ++i) EXPECT_EQ(files[i].name, "folder.x/r-" + std::to_string(i + 1) + ".png");
}

// Thirty and a hundred events: the table goes on behind the page, each event once, none outside the paper.
TEST_F(ReportTest, ALongTableGoesOn) {
  PicturedTrace trace = Metro();
  std::vector<Event>& events = trace.trace.table.events;
  const Event last = events.back(), splice = events[4];
  for (const int count : {30, 100}) {
    events.resize(1);
    for (int i = 1; i < count - 1; ++i) {
      events.push_back(splice);
      events.back().distanceKm = last.distanceKm * i / count;
      events.back().lossDb = 0.001 * i;
    }
    events.push_back(last);
    for (const PaperSize size : {PaperSize::kA4, PaperSize::kLetter}) {
      options_.size = size;
      const std::string text = TextOfPdf({trace});
      const paper::Texts texts("en");
      for (const Event& event : events) ExpectHas(text, {texts.Number(event.distanceKm, 4)});
      const bool onePage = text.find("continued") == std::string::npos;
      if (count == 100 || size == PaperSize::kA4) {
        EXPECT_EQ(onePage, count == 30);
      }
    }
  }
}

// Names of records and files come from anywhere.
TEST_F(ReportTest, HostileTextsStayTexts) {
  const std::vector<std::string> hostile = {
      "<b>bold</b> & <script>", "=1+1",         "\x1b[31mred\x01\x7f",    std::string("a\0b", 3),
      "\xff\xfe\xc3",           "\u202Eturned", std::string(100000, 'W'), "line\nline\r\nline",
      "\\u0000%n%s{1}",         "\ufeff\uffff"};
  for (const std::string& text : hostile) {
    PicturedTrace trace = Metro();
    for (std::string* place :
         {&trace.card.cable, &trace.card.fibre, &trace.card.from, &trace.card.to, &trace.card.operatorName,
          &trace.card.comment, &trace.card.supplier, &trace.card.software, &trace.trace.cable,
          &trace.trace.fibre, &trace.trace.file})
      *place = text;
    options_.title = text;
    const std::string shown = TextOfPdf({trace});
    ExpectHas(shown, {"40.0507", "Page 1 of 1"});
    for (const char c : shown)
      EXPECT_TRUE(c == '\n' || c == '\f' || static_cast<unsigned char>(c) >= ' ') << int(c);
    const std::string svg = ReportOf("r.svg", {trace}, options_)[0].bytes;
    EXPECT_EQ(svg.find("<script"), std::string::npos);
    EXPECT_LT(svg.size(), 3u << 20);
  }
  // What runs from right to left begins where its room does, on the summary too.
  std::vector<PicturedTrace> turned = {Metro(), Metro()};
  for (size_t i = 0; i < 2; ++i) {
    turned[i].trace.fibre =
        (i == 0 ? "\u0627\u0644\u0644\u064A\u0641 " : "\u05E9\u05DC\u05D5\u05DD ") + std::to_string(i);
    turned[i].trace.file = "f" + std::to_string(i) + ".sor";
    turned[i].trace.samples += i;
    turned[i].card.from = turned[i].trace.fibre + " <x>";
  }
  const std::string boxes =
      Said("pdftotext -bbox " + Store(ReportOf("report.pdf", turned, options_)[0]) + " -");
  size_t words = 0;
  for (size_t at = boxes.find("xMin=\""); at != std::string::npos;
       at = boxes.find("xMin=\"", at + 6), ++words)
    EXPECT_GE(std::stod(boxes.substr(at + 6)), 41.9) << boxes.substr(at, 120);
  EXPECT_GT(words, 100u);
  EXPECT_EQ(paper::Harmless("<b>A & B</b>"), "<b>A & B</b>") << "markup has no meaning, so that it is shown";
  EXPECT_EQ(paper::Harmless(" a\tb\n"), "a b");
}

TEST_F(ReportTest, WhatCanNotBeDoneIsSaid) {
  EXPECT_THROW(ReportOf("report.doc", {Metro()}, options_), Error);
  EXPECT_THROW(ReportOf("pdf", {Metro()}, options_), Error);
  options_.logo = "no picture";
  EXPECT_THROW(ReportOf("report.pdf", {Metro()}, options_), Error);
  options_.logo = "\xFF\xD8\xFF\xE0 JFIF";
  try {
    ReportOf("report.pdf", {Metro()}, options_);
    ADD_FAILURE() << "a JPEG was taken";
  } catch (const Error& error) {
    EXPECT_NE(std::string(error.what()).find("a JPEG picture; reports take PNG"), std::string::npos);
  }
  // A head that claims a picture of 60,000 by 60,000 points.
  options_.logo = std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\xea\x60\0\0\xea\x60\x08\x06\0\0\0", 29);
  EXPECT_THROW(ReportOf("report.pdf", {Metro()}, options_), Error);
  options_.logo.clear();
  options_.language = "xx";
  EXPECT_THROW(ReportOf("report.pdf", {Metro()}, options_), Error);
  options_.language = "en";
  PicturedTrace unread;
  unread.trace.file = "a.sor";
  unread.trace.problem = "a.sor: can't be read";
  EXPECT_THROW(ReportOf("report.pdf", {unread}, options_), Error);
}

TEST_F(ReportTest, EveryLanguageHasEveryWordAndFitsItsPlace) {
  const paper::Texts english("en");
  EXPECT_EQ(std::set<std::string>({"en", "de", "fr", "es"}), [] {
    const auto all = PaperLanguages();
    return std::set<std::string>(all.begin(), all.end());
  }());
  for (const std::string& language : PaperLanguages()) {
    const paper::Texts texts(language);
    for (const auto& [key, word] : english.all()) {
      ASSERT_EQ(texts.all().count(key), 1u) << language << " lacks " << key;
      EXPECT_FALSE(texts[key].empty()) << language << " " << key;
      EXPECT_EQ(word.find("{1}") == std::string::npos, texts[key].find("{1}") == std::string::npos) << key;
    }
    EXPECT_EQ(texts.all().size(), english.all().size()) << language;
    options_.language = language;
    options_.limits = Limits::FromText("l.ini", "[one way]\nsplice_db = 0.2\n");
    const std::string text = TextOfPdf({Metro()});
    ExpectHas(text, {texts["distance"], texts["reflectance"], texts["total-loss"], texts.Number(40.0507, 4)});
    EXPECT_EQ(text.find("…"), std::string::npos) << language << " has a word that is cut";
  }
}

}  // namespace
}  // namespace reflyze
