// SPDX-License-Identifier: Apache-2.0
#include "paper/Cover.h"

#include <algorithm>

#include "paper/Histogram.h"
#include "paper/Summary.h"
#include "paper/Table.h"

namespace reflyze::paper {
namespace {

constexpr double kHeading = 14.0, kBehind = 12.0, kSentence = 10.5;

class CoverMaker {
 public:
  CoverMaker(const Job& job, const std::vector<std::optional<size_t>>& firstPages, const std::string& title,
             const Setting& setting)
      : job_(job), title_(title), setting_(setting), texts_(setting.texts) {
    figures_ = FiguresTable(job, texts_, setting.sheet.Inner() * 0.56);
    joints_ = JointsTable(job, texts_, setting.sheet.Inner());
    // The page of a fibre is known once it is known how many pages the summary takes.
    fibres_ = FibresTable(job, firstPages, 0, texts_, setting.sheet.Inner());
    Flow();
    fibres_ = FibresTable(job, firstPages, pieces_.size(), texts_, setting.sheet.Inner());
  }

  size_t Count() const { return pieces_.size(); }

  void Draw(Canvas& canvas, size_t page) const {
    const Verdict worst = job_.failing > 0 ? Verdict::kFail : job_.judged ? Verdict::kPass : Verdict::kNone;
    DrawHead(canvas, setting_, title_, Subtitle(), worst);
    for (const Piece& piece : pieces_[page]) {
      switch (piece.part) {
        case Part::kFacts:
          DrawFacts(canvas, piece.y);
          break;
        case Part::kFigures:
          DrawFigures(canvas, piece.y);
          break;
        case Part::kJoints:
          DrawPart(canvas, piece, "joints", joints_);
          break;
        case Part::kFindings:
          DrawFindings(canvas, piece);
          break;
        case Part::kFibres:
          DrawPart(canvas, piece, "fibres", fibres_);
          break;
      }
    }
  }

 private:
  enum class Part { kFacts, kFigures, kJoints, kFindings, kFibres };
  struct Piece {
    Part part;
    double y;
    size_t from, to;
  };

  std::string Subtitle() const {
    std::string text = job_.cable.empty() ? "" : texts_["cable"] + " " + Harmless(job_.cable) + "   ·   ";
    const size_t fibres = job_.fibres.size();
    return text + (fibres == 1 ? texts_["one-fibre"] : texts_.With("n-fibres", std::to_string(fibres)));
  }

  void Flow() {
    pieces_.assign(1, {});
    y_ = Sheet::kHeadEnd;
    Put(Part::kFacts, 2.0 * kFactHeight + 6.0);
    Put(Part::kFigures, kHeading + std::max(Table::HeightOf(figures_.rows.size()), 112.0) + kBehind);
    Split(Part::kJoints, joints_.rows.size(), Table::kHeadHeight, Table::kRowHeight);
    Split(Part::kFindings, job_.findings.size(), 0.0, kSentence);
    Split(Part::kFibres, fibres_.rows.size(), Table::kHeadHeight, Table::kRowHeight);
  }
  void Put(Part part, double height) {
    pieces_.back().push_back({part, y_, 0, 0});
    y_ += height;
  }
  // Rows that go on where a page ends, below a heading on each.
  void Split(Part part, size_t rows, double head, double row) {
    for (size_t from = 0; from < rows;) {
      const double room = setting_.sheet.Bottom() - y_ - kHeading - head;
      const size_t fits = room > 0.0 ? static_cast<size_t>(room / row) : 0;
      if (fits < std::min<size_t>(3, rows - from)) {
        pieces_.emplace_back();
        y_ = Sheet::kHeadEnd;
        continue;
      }
      const size_t to = std::min(rows, from + fits);
      pieces_.back().push_back({part, y_, from, to});
      y_ += kHeading + head + row * static_cast<double>(to - from) + kBehind;
      from = to;
    }
  }

  void DrawFacts(Canvas& canvas, double y) const {
    const double width = setting_.sheet.Inner() / 4.0;
    int at = 0;
    for (const auto& [label, value] : CoverFacts(job_, setting_)) {
      DrawFact(canvas, setting_.sheet.Left() + width * (at % 4), y + kFactHeight * (at / 4), width - 8.0,
               label, value);
      ++at;
    }
  }
  void DrawFigures(Canvas& canvas, double y) const {
    const Sheet& sheet = setting_.sheet;
    DrawPartHeading(canvas, setting_, y + 8.0, texts_["summary"]);
    figures_.Draw(canvas, sheet.Left(), y + kHeading, 0, figures_.rows.size());
    const double left = sheet.Left() + sheet.Inner() * 0.60;
    canvas.Text(left, y + 8.0, texts_["splice-losses"], {8.8, true});
    DrawHistogram(canvas, {left, y + kHeading, sheet.Right() - left, 108.0}, job_.histogram, texts_);
  }
  void DrawPart(Canvas& canvas, const Piece& piece, const char* heading, const Table& table) const {
    DrawPartHeading(canvas, setting_, piece.y + 8.0, texts_[heading],
                    piece.from > 0 ? texts_["continued"] : "");
    table.Draw(canvas, setting_.sheet.Left(), piece.y + kHeading, piece.from, piece.to);
  }
  void DrawFindings(Canvas& canvas, const Piece& piece) const {
    DrawPartHeading(canvas, setting_, piece.y + 8.0, texts_["findings"],
                    piece.from > 0 ? texts_["continued"] : "");
    for (size_t i = piece.from; i < piece.to; ++i)
      canvas.FittingText(setting_.sheet.Left(),
                         piece.y + kHeading + 7.5 + kSentence * static_cast<double>(i - piece.from),
                         Harmless(texts_.Told(job_.findings[i])),
                         {7.6, false, kBlack, Align::kLeft, setting_.sheet.Inner()});
  }

  const Job& job_;
  const std::string title_;
  const Setting& setting_;
  const Texts& texts_;
  Table figures_, joints_, fibres_;
  std::vector<std::vector<Piece>> pieces_;  // a page each
  double y_ = 0.0;
};

}  // namespace

std::vector<Page> CoverPages(const Job& job, const std::vector<std::optional<size_t>>& firstPages,
                             const std::string& title, const Setting& setting) {
  const auto maker = std::make_shared<const CoverMaker>(job, firstPages, title, setting);
  std::vector<Page> pages(maker->Count());
  pages[0].bookmark = title;
  for (size_t i = 0; i < pages.size(); ++i) {
    pages[i].draw = [maker, i](Canvas& canvas) { maker->Draw(canvas, i); };
  }
  return pages;
}

}  // namespace reflyze::paper
