// SPDX-License-Identifier: Apache-2.0

// The page of a fibre: who, what, where and when; totals; the curves with their events, the begin and the end
// magnified; the tables. Where the tables are long the picture is lower, and at last they go on behind it.

#include <algorithm>

#include "paper/EventTables.h"
#include "paper/Pages.h"
#include "paper/Panel.h"
#include "paper/Table.h"

namespace reflyze::paper {
namespace {

constexpr double kFactRows = 4.0;
constexpr double kTableHeading = 13.0, kBehindTable = 7.0;
constexpr double kLowestPicture = 110.0, kHighestPicture = 270.0, kUsualPicture = 200.0;
constexpr double kCloseUps = 92.0;

// What several traces say alike, once; else each.
template <class Say>
std::string OfAll(const Fibre& fibre, Say say) {
  std::vector<std::string> all;
  for (const Wave& wave : fibre.waves) {
    for (const PicturedTrace* trace : {wave.a, wave.b}) {
      if (trace == nullptr) continue;
      const std::string text = HarmlessOrDash(say(*trace));
      if (std::find(all.begin(), all.end(), text) == all.end()) all.push_back(text);
    }
  }
  if (all.size() > 1) all.erase(std::remove(all.begin(), all.end(), "-"), all.end());
  std::string text;
  for (const std::string& one : all) text += (text.empty() ? "" : " / ") + one;
  return text.empty() ? "-" : text;
}

std::string JoinedBy(const std::string& one, const std::string& other, const char* between) {
  return one.empty() || other.empty() ? one + other : one + between + other;
}

// Where the picture ends and the tables begin, of what stands on the page before.
struct FibreLayout {
  double facts, totals, picture, pictureHeight, closeUps, tables;
};

class FibrePageMaker {
 public:
  FibrePageMaker(const Fibre& fibre, const Setting& setting) : fibre_(fibre), setting_(setting) {
    totals_ = TotalsTable(fibre, setting.texts, setting.sheet.Inner());
    for (const Wave& wave : fibre.waves) {
      tables_.push_back(EventsTable(wave, setting.texts, setting.sheet.Inner()));
      headings_.push_back(EventsHeading(wave, setting.texts));
    }
    Settle();
  }

  // The tables that stand on a page: which, and their rows.
  struct Piece {
    size_t table, from, to;
    double y;
  };

  // How the tables fall on pages; on the first they begin below the picture.
  std::vector<std::vector<Piece>> Pieces() const {
    std::vector<std::vector<Piece>> pages(1);
    double y = layout_.tables;
    for (size_t t = 0; t < tables_.size(); ++t) {
      size_t from = 0;
      const size_t rows = tables_[t].rows.size();
      while (from < rows) {
        const double room = setting_.sheet.Bottom() - y - kTableHeading - Table::kHeadHeight;
        const size_t fits = room > 0.0 ? static_cast<size_t>(room / Table::kRowHeight) : 0;
        // Two rows at the foot of a page are no table.
        if (fits < std::min<size_t>(3, rows - from)) {
          pages.emplace_back();
          y = Sheet::kHeadEnd;
          continue;
        }
        const size_t to = std::min(rows, from + fits);
        pages.back().push_back({t, from, to, y});
        y += kTableHeading + Table::HeightOf(to - from) + kBehindTable;
        from = to;
      }
    }
    return pages;
  }

  void DrawFirst(Canvas& canvas) const {
    DrawPageHead(canvas);
    DrawFacts(canvas);
    totals_.Draw(canvas, setting_.sheet.Left(), layout_.totals, 0, totals_.rows.size());
    double y = layout_.totals + Table::HeightOf(totals_.rows.size()) + 9.0;
    for (const std::string& finding : fibre_.findings) {
      canvas.FittingText(setting_.sheet.Left(), y,
                         setting_.texts["finding"] + " " + Harmless(setting_.texts.Told(finding)),
                         {7.8, true, kFailRed, Align::kLeft, setting_.sheet.Inner()});
      y += 11.0;
    }
    const Sheet& sheet = setting_.sheet;
    DrawCurves(canvas, {sheet.Left(), layout_.picture, sheet.Inner(), layout_.pictureHeight}, fibre_,
               setting_.texts);
    DrawCloseUps(canvas, {sheet.Left(), layout_.closeUps, sheet.Inner(), kCloseUps}, fibre_, setting_.texts);
  }

  void DrawPageHead(Canvas& canvas) const {
    const Texts& texts = setting_.texts;
    const Card& card = fibre_.waves.front().First().card;
    const std::string ends = JoinedBy(Harmless(card.from), Harmless(card.to), " – ");
    const std::string cable = Harmless(fibre_.cable.empty() ? card.cable : fibre_.cable);
    DrawHead(canvas, setting_, texts["fibre"] + " " + HarmlessOrDash(fibre_.name),
             JoinedBy(cable.empty() ? "" : texts["cable"] + " " + cable, ends, "   ·   "), fibre_.verdict);
  }

  void DrawPiece(Canvas& canvas, const Piece& piece) const {
    const std::string more = piece.from > 0 ? setting_.texts["continued"] : headings_[piece.table].beside;
    DrawPartHeading(canvas, setting_, piece.y + 7.0, headings_[piece.table].text, more);
    tables_[piece.table].Draw(canvas, setting_.sheet.Left(), piece.y + kTableHeading, piece.from, piece.to);
  }

 private:
  void Settle() {
    layout_.facts = Sheet::kHeadEnd;
    layout_.totals = layout_.facts + kFactRows * kFactHeight + 6.0;
    const double findings =
        fibre_.findings.empty() ? 0.0 : 11.0 * static_cast<double>(fibre_.findings.size());
    layout_.picture = layout_.totals + Table::HeightOf(totals_.rows.size()) + 9.0 + findings;
    double wanted = 0.0;
    for (const Table& table : tables_)
      wanted += kTableHeading + Table::HeightOf(table.rows.size()) + kBehindTable;
    const double room = setting_.sheet.Bottom() - layout_.picture - kCloseUps - 16.0 - wanted + kBehindTable;
    layout_.pictureHeight = room < kLowestPicture ? kUsualPicture : std::min(room, kHighestPicture);
    layout_.closeUps = layout_.picture + layout_.pictureHeight + 8.0;
    layout_.tables = layout_.closeUps + kCloseUps + 8.0;
  }

  void DrawFacts(Canvas& canvas) const {
    const Texts& texts = setting_.texts;
    constexpr int kColumns = 4;
    const double width = setting_.sheet.Inner() / kColumns;
    int at = 0;
    const auto fact = [&](const char* label, const std::string& value) {
      DrawFact(canvas, setting_.sheet.Left() + width * (at % kColumns),
               layout_.facts + kFactHeight * (at / kColumns), width - 8.0, texts[label], value);
      ++at;
    };
    const auto number = [&](double value, int decimals, const char* unit) {
      return value > 0.0 ? texts.Number(value, decimals) + unit : std::string("-");
    };
    using T = PicturedTrace;
    // A trace from the other end names the ends the other way round.
    fact("from", HarmlessOrDash(fibre_.waves.front().First().card.from));
    fact("to", HarmlessOrDash(fibre_.waves.front().First().card.to));
    fact("operator", OfAll(fibre_, [](const T& t) { return t.card.operatorName; }));
    fact("date", OfAll(fibre_, [](const T& t) { return Texts::Moment(t.card.dateUtc); }));
    fact("instrument", OfAll(fibre_, [](const T& t) {
           return JoinedBy(JoinedBy(Harmless(t.card.supplier), Harmless(t.card.instrument), " "),
                           Harmless(t.card.instrumentSerial), ", ");
         }));
    fact("module", OfAll(fibre_, [](const T& t) {
           return JoinedBy(Harmless(t.card.module), Harmless(t.card.moduleSerial), ", ");
         }));
    fact("wavelength", OfAll(fibre_, [&](const T& t) { return number(t.card.wavelengthNm, 1, " nm"); }));
    fact("pulse", OfAll(fibre_, [&](const T& t) { return number(t.card.pulseNs, 0, " ns"); }));
    fact("range", OfAll(fibre_, [&](const T& t) { return number(t.card.rangeKm, 3, " km"); }));
    fact("spacing", OfAll(fibre_, [&](const T& t) { return number(t.card.spacingM, 3, " m"); }));
    fact("averages", OfAll(fibre_, [&](const T& t) {
           return t.card.averages > 0 ? std::to_string(t.card.averages) : std::string("-");
         }));
    fact("index", OfAll(fibre_, [&](const T& t) { return number(t.card.groupIndex, 5, ""); }));
    fact("fibre-type", OfAll(fibre_, [](const T& t) {
           return t.card.fibreType > 0 ? "G." + std::to_string(t.card.fibreType) : std::string("-");
         }));
    fact("backscatter", OfAll(fibre_, [&](const T& t) {
           return t.card.backscatterDb ? texts.Number(t.card.backscatterDb, 2) + " dB" : std::string("-");
         }));
    fact("comment", OfAll(fibre_, [](const T& t) { return t.card.comment; }));
    fact("software", OfAll(fibre_, [](const T& t) { return t.card.software; }));
  }

  const Fibre& fibre_;
  const Setting& setting_;
  Table totals_;
  std::vector<Table> tables_;
  std::vector<TableHeading> headings_;
  FibreLayout layout_ = {};
};

}  // namespace

std::vector<Page> FibrePages(const Fibre& fibre, const Setting& setting) {
  std::vector<Page> pages;
  if (fibre.waves.empty()) return pages;
  const auto maker = std::make_shared<const FibrePageMaker>(fibre, setting);
  for (const auto& pieces : maker->Pieces()) {
    const bool first = pages.empty();
    Page page;
    if (first) page.bookmark = HarmlessOrDash(fibre.name);
    page.draw = [maker, pieces, first](Canvas& canvas) {
      first ? maker->DrawFirst(canvas) : maker->DrawPageHead(canvas);
      for (const auto& piece : pieces) maker->DrawPiece(canvas, piece);
    };
    pages.push_back(std::move(page));
  }
  return pages;
}

}  // namespace reflyze::paper
