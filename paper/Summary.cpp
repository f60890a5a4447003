// SPDX-License-Identifier: Apache-2.0
#include "paper/Summary.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <set>

#include "paper/EventTables.h"

namespace reflyze::paper {
namespace {

// Different texts of all traces, the first few of them.
template <class Say>
std::string Different(const Job& job, Say say) {
  constexpr size_t kMost = 3;
  std::vector<std::string> all;
  for (const Fibre& fibre : job.fibres) {
    for (const Wave& wave : fibre.waves) {
      const std::string text = Harmless(say(wave.First()));
      if (!text.empty() && text != "-" && std::find(all.begin(), all.end(), text) == all.end())
        all.push_back(text);
    }
  }
  std::string joined;
  for (size_t i = 0; i < all.size() && i < kMost; ++i) joined += (i == 0 ? "" : " / ") + all[i];
  return all.empty() ? "-" : all.size() > kMost ? joined + " …" : joined;
}

std::string Period(const Job& job) {
  long long first = std::numeric_limits<long long>::max(), last = 0;
  for (const Fibre& fibre : job.fibres) {
    for (const Wave& wave : fibre.waves) {
      const long long date = wave.First().card.dateUtc;
      if (date <= 0) continue;
      first = std::min(first, date);
      last = std::max(last, date);
    }
  }
  if (last == 0) return "-";
  const std::string from = Texts::Day(first), to = Texts::Day(last);
  return from == to ? from : from + " – " + to;
}

// The worst of one kind of number over the wavelengths of a fibre.
template <class Verdicts>
Verdict WorstOfWaves(const Fibre& fibre, Verdicts verdicts) {
  Verdict worst = Verdict::kNone;
  for (const Wave& wave : fibre.waves) {
    if (wave.verdict) worst = std::max(worst, verdicts(wave));
  }
  return worst;
}

Verdict JointsOf(const Wave& wave, bool connectors) {
  Verdict worst = Verdict::kNone;
  for (const EventLine& line : wave.lines) {
    const bool splice = line.kind == "kind.non-reflective" || line.kind == "kind.gain";
    if (splice != connectors) worst = std::max(worst, line.verdict.loss);
  }
  return worst;
}

// What is wrong with a fibre, below its row. Sentences on numbers name the place; its page has the rest.
Row FindingRow(const std::string& text) {
  Row row(3);
  row[1].text = text;
  row[1].spans = true;
  return row;
}

}  // namespace

std::vector<std::pair<std::string, std::string>> CoverFacts(const Job& job, const Setting& setting) {
  const Texts& texts = setting.texts;
  const auto& limits = setting.options.limits;
  using T = PicturedTrace;
  return {{texts["n-passing"], job.judged ? std::to_string(job.passing) : "-"},
          {texts["n-failing"], job.judged || job.failing > 0 ? std::to_string(job.failing) : "-"},
          {texts["limits-label"], limits ? HarmlessOrDash(limits->name) : "-"},
          {texts["date"], Period(job)},
          {texts["from"], Different(job, [](const T& t) { return t.card.from; })},
          {texts["to"], Different(job, [](const T& t) { return t.card.to; })},
          {texts["operator"], Different(job, [](const T& t) { return t.card.operatorName; })},
          {texts["instrument"], Different(job, [](const T& t) {
             return Harmless(t.card.supplier) + (Harmless(t.card.supplier).empty() ? "" : " ") +
                    Harmless(t.card.instrument);
           })}};
}

Table FiguresTable(const Job& job, const Texts& texts, double width) {
  Table table;
  table.columns = {{"", "", 84.0, Align::kLeft}, {texts["number"], "", 34.0},  {texts["least"], "", 44.0},
                   {texts["mean"], "", 44.0},    {texts["largest"], "", 44.0}, {texts["sd"], "", 40.0}};
  const auto add = [&](const std::string& name, const CableFigures& figures, int decimals) {
    if (figures.count == 0) return;
    table.rows.push_back({{name},
                          {std::to_string(figures.count)},
                          {texts.Number(figures.least, decimals)},
                          {texts.Number(figures.mean, decimals), Verdict::kNone, "", true},
                          {texts.Number(figures.largest, decimals)},
                          {figures.count > 1 ? texts.Number(figures.sd, decimals) : "-"}});
  };
  add(texts["length"] + ", km", job.lengthKm, kLengthDecimals);
  for (const CableTotals& totals : job.totals) {
    const std::string at = ", dB, " + std::to_string(totals.wavelengthNm) + " nm";
    add(texts["total-loss"] + at, totals.lossDb, kLossDecimals);
    add(texts["return-loss"] + at, totals.returnLossDb, kReflectanceDecimals);
    add(texts["splices"] + at, totals.spliceDb, kLossDecimals);
  }
  table.columns[0].width = 118.0;
  table.Stretch(width);
  return table;
}

Table JointsTable(const Job& job, const Texts& texts, double width) {
  Table table;
  table.columns = {{texts["distance"], "km", 50.0},        {texts["type"], "", 70.0, Align::kLeft},
                   {texts["n-of-fibres"], "", 46.0},       {texts["mean"], "dB", 46.0},
                   {texts["largest"], "dB", 46.0},         {texts["sd"], "dB", 46.0},
                   {texts["bad"], "", 210.0, Align::kLeft}};
  // A single fibre has a table of its own.
  if (job.fibres.size() < 2) return table;
  for (const CableJoint& joint : job.joints) {
    std::string bad;
    for (const std::string& fibre : joint.bad) bad += (bad.empty() ? "" : ", ") + Harmless(fibre);
    if (joint.forAll)
      bad = texts.With("for-all", std::to_string(joint.bad.size()), std::to_string(joint.fibres));
    const Verdict verdict = joint.forAll ? Verdict::kWarning : Verdict::kNone;
    table.rows.push_back({{texts.Number(joint.km, kLengthDecimals)},
                          {texts[joint.connector ? "connector" : "splice"]},
                          {std::to_string(joint.fibres)},
                          {texts.Number(joint.meanDb, kLossDecimals), verdict},
                          {texts.Number(joint.largestDb, kLossDecimals)},
                          {texts.Number(joint.sdDb, kLossDecimals)},
                          {bad.empty() ? "-" : bad}});
  }
  table.Stretch(width);
  return table;
}

std::optional<double> WorstOfRow(const CableRow& row, std::optional<double> CableNumbers::*number,
                                 bool highest) {
  std::optional<double> worst;
  for (const CableNumbers& numbers : row.wavelengths) {
    const std::optional<double>& own = numbers.*number;
    if (own && (!worst || (highest ? *own > *worst : *own < *worst))) worst = own;
  }
  return worst;
}

std::vector<size_t> FailuresFirst(const Job& job) {
  std::vector<size_t> order(job.fibres.size());
  std::iota(order.begin(), order.end(), size_t{0});
  std::stable_sort(order.begin(), order.end(),
                   [&](size_t a, size_t b) { return job.fibres[a].verdict > job.fibres[b].verdict; });
  return order;
}

namespace {

// Fibres of several cables may have one name: the cable, else the file, tells them apart.
std::string NameIn(const Job& job, const Fibre& fibre) {
  std::string name = HarmlessOrDash(fibre.name);
  const auto same = std::count_if(job.fibres.begin(), job.fibres.end(),
                                  [&](const Fibre& other) { return other.name == fibre.name; });
  if (same < 2 || fibre.waves.empty()) return name;
  const std::string cable = Harmless(fibre.cable);
  return name + " (" + (cable.empty() ? FileNameOf(fibre.waves.front().First().trace.file) : cable) + ")";
}

}  // namespace

Table FibresTable(const Job& job, const std::vector<std::optional<size_t>>& firstPages, size_t pagesBefore,
                  const Texts& texts, double width) {
  Table table;
  table.columns = {{texts["fibre"], "", 62.0, Align::kLeft}, {texts["length"], "km", 50.0}};
  for (const CableTotals& totals : job.totals)
    table.columns.push_back({texts["loss-short"] + " " + std::to_string(totals.wavelengthNm), "dB", 50.0});
  table.columns.push_back({texts["return-loss"], "dB", 48.0});
  table.columns.push_back({texts["splice-heading"], texts["worst"] + ", dB", 56.0});
  table.columns.push_back({texts["connector-heading"], texts["worst"] + ", dB", 56.0});
  table.columns.push_back({texts["joints-short"], "", 40.0});
  const bool judged = std::any_of(job.fibres.begin(), job.fibres.end(),
                                  [](const Fibre& fibre) { return fibre.verdict != Verdict::kNone; });
  if (judged) table.columns.push_back({texts["verdict"], "", 56.0, Align::kCentre});
  table.columns.push_back({texts["page-short"], "", 32.0});
  for (const size_t index : FailuresFirst(job)) {
    const Fibre& fibre = job.fibres[index];
    const CableRow& row = fibre.row;
    Row cells = {{NameIn(job, fibre), Verdict::kNone, "", true},
                 {texts.Number(WorstOfRow(row, &CableNumbers::lengthKm, true), kLengthDecimals),
                  WorstOfWaves(fibre, [](const Wave& wave) { return wave.verdict->length; })}};
    int events = 0;
    for (const CableTotals& totals : job.totals) {
      Cell loss = {"-"};
      for (const Wave& wave : fibre.waves) {
        if (wave.nm == totals.wavelengthNm)
          loss = {texts.Number(wave.lossDb, kLossDecimals),
                  wave.verdict ? wave.verdict->spanLoss : Verdict::kNone};
      }
      cells.push_back(loss);
    }
    for (const CableNumbers& numbers : row.wavelengths) events = std::max(events, numbers.events);
    cells.push_back({texts.Number(WorstOfRow(row, &CableNumbers::returnLossDb, false), kReflectanceDecimals),
                     WorstOfWaves(fibre, [](const Wave& wave) { return wave.verdict->returnLoss; })});
    cells.push_back({texts.Number(WorstOfRow(row, &CableNumbers::worstSpliceDb, true), kLossDecimals),
                     WorstOfWaves(fibre, [](const Wave& wave) { return JointsOf(wave, false); })});
    cells.push_back({texts.Number(WorstOfRow(row, &CableNumbers::worstConnectorDb, true), kLossDecimals),
                     WorstOfWaves(fibre, [](const Wave& wave) { return JointsOf(wave, true); })});
    cells.push_back({fibre.waves.empty() ? "-" : std::to_string(events)});
    if (judged) cells.push_back({texts.WordFor(fibre.verdict), fibre.verdict});
    const std::optional<size_t>& page = firstPages[index];
    cells.push_back({page ? std::to_string(pagesBefore + *page + 1) : "-"});
    table.rows.push_back(std::move(cells));
    for (const std::string& finding : fibre.findings)
      table.rows.push_back(FindingRow(Harmless(texts.Told(finding))));
  }
  table.Stretch(width);
  return table;
}

}  // namespace reflyze::paper
