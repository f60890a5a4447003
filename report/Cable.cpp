// SPDX-License-Identifier: Apache-2.0

// A cable, as people, scripts and spreadsheets read it.

#include <algorithm>

#include "lib/Text.h"
#include "reflyze/cable.h"
#include "report/JsonText.h"
#include "report/Words.h"

namespace reflyze {
namespace {

using Json = nlohmann::ordered_json;

std::string Joined(const std::vector<std::string>& names) {
  constexpr size_t kMost = 12;
  std::string text;
  for (size_t i = 0; i < names.size() && i < kMost; ++i) text += (i == 0 ? "" : ", ") + OneLine(names[i]);
  if (names.size() > kMost) text += Format(" and %zu more", names.size() - kMost);
  return text;
}

std::vector<int> Wavelengths(const CableReport& report) {
  std::vector<int> all;
  for (const CableTotals& totals : report.totals) all.push_back(totals.wavelengthNm);
  return all;
}

// The worst of a number over the wavelengths of a fibre.
template <class Member>
std::optional<double> Worst(const CableRow& row, Member member, bool highest) {
  std::optional<double> worst;
  for (const CableNumbers& numbers : row.wavelengths) {
    const std::optional<double>& own = numbers.*member;
    if (own && (!worst || (highest ? *own > *worst : *own < *worst))) worst = own;
  }
  return worst;
}

std::string RowText(const CableRow& row, const std::vector<int>& wavelengths) {
  std::string text = Format(" %-8s %9s", OneLine(row.fibre).c_str(),
                            NumberOrDash(Worst(row, &CableNumbers::lengthKm, true), 4).c_str());
  int events = 0;
  for (const int nm : wavelengths) {
    std::optional<double> loss;
    for (const CableNumbers& numbers : row.wavelengths) {
      if (numbers.wavelengthNm == nm) loss = numbers.lossDb;
      events = std::max(events, numbers.events);
    }
    text += Format(" %8s", NumberOrDash(loss, 3).c_str());
  }
  text += Format("  %7s  %7s  %7s  %6d  %s\n",
                 NumberOrDash(Worst(row, &CableNumbers::returnLossDb, false), 2).c_str(),
                 NumberOrDash(Worst(row, &CableNumbers::worstSpliceDb, true), 3).c_str(),
                 NumberOrDash(Worst(row, &CableNumbers::worstConnectorDb, true), 3).c_str(), events,
                 WordOf(row.verdict));
  for (const std::string& finding : row.findings) text += "          " + OneLine(finding) + "\n";
  for (const CableNumbers& numbers : row.wavelengths) {
    if (!numbers.verdict) continue;
    for (const std::string& sentence : numbers.verdict->sentences)
      text += Format("          %d nm, ", numbers.wavelengthNm) + sentence + "\n";
  }
  return text;
}

std::string FiguresText(const std::string& name, const CableFigures& figures, int decimals) {
  if (figures.count == 0) return "";
  return Format(" %-22s %6d %9.*f %9.*f %9.*f %9.*f\n", name.c_str(), figures.count, decimals,
                NoMinusZero(figures.least, decimals), decimals, NoMinusZero(figures.mean, decimals), decimals,
                NoMinusZero(figures.largest, decimals), decimals, NoMinusZero(figures.sd, decimals));
}

std::string JointsText(const CableReport& report) {
  if (report.joints.empty()) return "";
  std::string text =
      "\nJoints at the same place\n"
      "       km  Kind       Fibres    Mean  Largest      SD  Bad\n"
      " --------  ---------  ------  ------  -------  ------  ---\n";
  for (const CableJoint& joint : report.joints) {
    std::string bad = joint.bad.empty() ? "-" : Joined(joint.bad);
    if (joint.forAll) bad = Format("for all: the place, %zu of %d", joint.bad.size(), joint.fibres);
    text += Format(" %8.4f  %-9s  %6d  %6.3f  %7.3f  %6.3f  %s\n", NoMinusZero(joint.km, 4),
                   joint.connector ? "connector" : "splice", joint.fibres, NoMinusZero(joint.meanDb, 3),
                   NoMinusZero(joint.largestDb, 3), joint.sdDb, bad.c_str());
  }
  return text;
}

std::string HistogramText(const CableReport& report) {
  if (std::all_of(report.histogram.begin(), report.histogram.end(), [](int n) { return n == 0; })) return "";
  const int most = *std::max_element(report.histogram.begin(), report.histogram.end());
  std::string text = "\nSplice losses\n";
  for (int i = 0; i < kHistogramBars; ++i) {
    const int count = report.histogram[static_cast<size_t>(i)];
    const std::string range = i == 0 ? "below 0.00"
                              : i + 1 == kHistogramBars
                                  ? Format("%.2f and more", kHistogramDb * (i - 1))
                                  : Format("%.2f to %.2f", kHistogramDb * (i - 1), kHistogramDb * i);
    text += Format(" %-14s %7d  %s\n", range.c_str(), count,
                   std::string(static_cast<size_t>((40 * count + most - 1) / most), '#').c_str());
  }
  return text;
}

Json JsonOf(const CableFigures& figures) {
  return {{"count", figures.count},
          {"least", figures.least},
          {"mean", figures.mean},
          {"largest", figures.largest},
          {"sd", figures.sd}};
}

Json JsonOf(const CableNumbers& numbers) {
  Json json = {{"wavelength_nm", numbers.wavelengthNm},
               {"file_a", numbers.fileA},
               {"file_b", numbers.fileB},
               {"length_km", NumberOrNull(numbers.lengthKm)},
               {"loss_db", NumberOrNull(numbers.lossDb)},
               {"orl_db", NumberOrNull(numbers.returnLossDb)},
               {"worst_splice_db", NumberOrNull(numbers.worstSpliceDb)},
               {"worst_connector_db", NumberOrNull(numbers.worstConnectorDb)},
               {"events", numbers.events}};
  if (numbers.verdict) {
    json["verdict"] = WordOrNull(numbers.verdict->verdict);
    json["sentences"] = numbers.verdict->sentences;
  }
  return json;
}

Json JsonOf(const CableRow& row) {
  Json json = {{"fibre", row.fibre}, {"verdict", WordOrNull(row.verdict)}, {"findings", row.findings}};
  json["wavelengths"] = Json::array();
  for (const CableNumbers& numbers : row.wavelengths) json["wavelengths"].push_back(JsonOf(numbers));
  return json;
}

Json JsonOf(const CableJoint& joint) {
  return {{"distance_km", joint.km}, {"kind", joint.connector ? "connector" : "splice"},
          {"fibres", joint.fibres},  {"mean_db", joint.meanDb},
          {"sd_db", joint.sdDb},     {"largest_db", joint.largestDb},
          {"bad", joint.bad},        {"for_all", joint.forAll}};
}

}  // namespace

std::string TextOf(const CableReport& report) {
  const std::vector<int> wavelengths = Wavelengths(report);
  std::string text = Format("Cable        %s\n", report.cable.empty() ? "-" : OneLine(report.cable).c_str());
  text += Format("Reels        launch %s, receive %s\n\n",
                 report.reels.launchKm ? Format("%.4f km", *report.reels.launchKm).c_str() : "-",
                 report.reels.receiveKm ? Format("%.4f km", *report.reels.receiveKm).c_str() : "-");
  text += " Fibre    Length km";
  for (const int nm : wavelengths) text += Format(" dB@%-5d", nm);
  text += "   ORL dB   Splice  Connect  Events  Verdict\n";
  for (const CableRow& row : report.rows) text += RowText(row, wavelengths);
  text += JointsText(report) + HistogramText(report);
  text += "\n                        Fibres     Least      Mean   Largest        SD\n";
  text += FiguresText("Length, km", report.lengthKm, 4);
  for (const CableTotals& totals : report.totals) {
    const std::string nm = Format(" at %d nm, dB", totals.wavelengthNm);
    text += FiguresText("Loss" + nm, totals.lossDb, 3) + FiguresText("ORL" + nm, totals.returnLossDb, 2) +
            FiguresText("Splices" + nm, totals.spliceDb, 3);
  }
  if (!report.findings.empty()) text += "\nFiles\n";
  for (const std::string& finding : report.findings) text += "  " + finding + "\n";
  return text +
         Format("\n%zu fibres: %d pass, %d fail\n", report.rows.size(), report.passing, report.failing);
}

std::string JsonOf(const CableReport& report) {
  Json json = {{"cable", report.cable}, {"passing", report.passing}, {"failing", report.failing}};
  json["launch_reel_km"] = NumberOrNull(report.reels.launchKm);
  json["receive_reel_km"] = NumberOrNull(report.reels.receiveKm);
  json["fibres"] = Json::array();
  for (const CableRow& row : report.rows) json["fibres"].push_back(JsonOf(row));
  json["joints"] = Json::array();
  for (const CableJoint& joint : report.joints) json["joints"].push_back(JsonOf(joint));
  json["length_km"] = JsonOf(report.lengthKm);
  json["wavelengths"] = Json::array();
  for (const CableTotals& totals : report.totals) {
    json["wavelengths"].push_back({{"wavelength_nm", totals.wavelengthNm},
                                   {"loss_db", JsonOf(totals.lossDb)},
                                   {"orl_db", JsonOf(totals.returnLossDb)},
                                   {"splice_db", JsonOf(totals.spliceDb)}});
  }
  json["histogram"] = {{"width_db", kHistogramDb}, {"counts", report.histogram}};
  json["findings"] = report.findings;
  return JsonText(json) + "\n";
}

std::string CsvOf(const CableReport& report) {
  std::string text =
      "fibre,wavelength_nm,length_km,loss_db,orl_db,worst_splice_db,worst_connector_db,events,verdict,"
      "findings\n";
  for (const CableRow& row : report.rows) {
    std::string findings;
    for (const std::string& finding : row.findings) findings += (findings.empty() ? "" : "; ") + finding;
    const std::string tail = std::string(WordOf(row.verdict)) + "," + CsvText(ValidUtf8(findings)) + "\n";
    if (row.wavelengths.empty()) text += CsvText(ValidUtf8(row.fibre)) + ",,,,,,,," + tail;
    for (const CableNumbers& one : row.wavelengths) {
      text += CsvText(ValidUtf8(row.fibre)) + Format(",%d,", one.wavelengthNm) + CsvNumber(one.lengthKm, 6) +
              "," + CsvNumber(one.lossDb, 3) + "," + CsvNumber(one.returnLossDb, 2) + "," +
              CsvNumber(one.worstSpliceDb, 3) + "," + CsvNumber(one.worstConnectorDb, 3) +
              Format(",%d,", one.events) + tail;
    }
  }
  return text;
}

}  // namespace reflyze
