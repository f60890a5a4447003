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
  const std::string both = TextOfPdf({Metro(), back});
  ExpectHas(both, {"both directions", "Loss A", "Loss B", "Mean", "Page 1 of 1"});
  // Another fibre that an instrument calls "1" too is no direction of this one.
  ExpectHas(TextOfPdf({Metro(), Example("access-2km.sor")}), {"Page 1 of 2", "Page 2 of 2"});
}

TEST_F(ReportTest, EachPictureOfSeveralIsAFileOfItsOwn) {
  const std::vector<Output> files =
      ReportOf("folder.x/r.png", {Metro(), Example("access-2km.sor")}, options_);
  ASSERT_EQ(files.size(), 2u);
  EXPECT_EQ(files[0].name, "folder.x/r-1.png");
  EXPECT_EQ(files[1].name, "folder.x/r-2.png");
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
  EXPECT_EQ(paper::Harmless("<b>A & B</b>"), "<b>A & B</b>") << "markup has no meaning, so that it is shown";
  EXPECT_EQ(paper::Harmless(" a\tb\n"), "a b");
}

TEST_F(ReportTest, WhatCanNotBeDoneIsSaid) {
  EXPECT_THROW(ReportOf("report.doc", {Metro()}, options_), Error);
  EXPECT_THROW(ReportOf("pdf", {Metro()}, options_), Error);
  options_.logo = "no picture";
  EXPECT_THROW(ReportOf("report.pdf", {Metro()}, options_), Error);
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
