// SPDX-License-Identifier: Apache-2.0
#include "paper/Job.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <tuple>

#include "paper/Lines.h"
#include "reflyze/inputs.h"

namespace reflyze::paper {
namespace {

struct NaturalOrder {
  bool operator()(const std::string& a, const std::string& b) const { return NaturalLess(a, b); }
};

std::string StemOf(const std::string& file) { return std::filesystem::path(file).stem().string(); }

// Two traces of one name may be the two directions, which then go from each other's end, or one trace twice.
bool BelongTogether(const CableTrace& one, const CableTrace& other) {
  const bool crossed =
      !one.from.empty() && one.from != one.to && one.from == other.to && one.to == other.from;
  return crossed || one.samples == other.samples;
}

// Instruments that nobody has told a fibre call all of them the same. Such traces are fibres of their own,
// by the names of their files, unless they are directions of one.
void TellApart(std::vector<CableTrace>& traces) {
  std::map<std::tuple<std::string, std::string, int>, std::vector<size_t>> unnamed;
  for (size_t i = 0; i < traces.size(); ++i) {
    CableTrace& trace = traces[i];
    if (trace.fibre.empty()) trace.fibre = StemOf(trace.file);
    if (trace.direction.empty()) unnamed[{trace.cable, trace.fibre, trace.wavelengthNm}].push_back(i);
  }
  for (const auto& [name, indices] : unnamed) {
    if (indices.size() < 2) continue;
    if (indices.size() == 2 && BelongTogether(traces[indices[0]], traces[indices[1]])) continue;
    for (const size_t i : indices) {
      traces[i].fibre = StemOf(traces[i].file);
      traces[i].cable.clear();
    }
  }
}

// Sums of parts: mean and deviation of all from those of each.
CableFigures Together(const CableFigures& one, const CableFigures& other) {
  if (one.count == 0) return other;
  if (other.count == 0) return one;
  CableFigures both;
  both.count = one.count + other.count;
  both.least = std::min(one.least, other.least);
  both.largest = std::max(one.largest, other.largest);
  both.mean = (one.mean * one.count + other.mean * other.count) / both.count;
  double squares = 0.0;
  for (const CableFigures* part : {&one, &other})
    squares += part->sd * part->sd * (part->count - 1) +
               part->count * (part->mean - both.mean) * (part->mean - both.mean);
  both.sd = std::sqrt(squares / (both.count - 1));
  return both;
}

void AddTotals(Job& job, const CableReport& report) {
  for (const CableTotals& totals : report.totals) {
    auto place = std::lower_bound(job.totals.begin(), job.totals.end(), totals.wavelengthNm,
                                  [](const CableTotals& one, int nm) { return one.wavelengthNm < nm; });
    if (place == job.totals.end() || place->wavelengthNm != totals.wavelengthNm) {
      job.totals.insert(place, totals);
      continue;
    }
    place->lossDb = Together(place->lossDb, totals.lossDb);
    place->returnLossDb = Together(place->returnLossDb, totals.returnLossDb);
    place->spliceDb = Together(place->spliceDb, totals.spliceDb);
  }
  job.lengthKm = Together(job.lengthKm, report.lengthKm);
  job.histogram.resize(kHistogramBars);
  for (size_t i = 0; i < report.histogram.size() && i < job.histogram.size(); ++i)
    job.histogram[i] += report.histogram[i];
  job.findings.insert(job.findings.end(), report.findings.begin(), report.findings.end());
}

class JobMaker {
 public:
  JobMaker(const std::vector<PicturedTrace>& pictures, const PaperOptions& options) : options_(options) {
    for (const PicturedTrace& picture : pictures) {
      traces_.push_back(picture.trace);
      pictures_.emplace(picture.trace.file, &picture);
    }
  }

  Job Made() {
    job_.judged = options_.limits.has_value();
    TellApart(traces_);
    // A cable without a name is none: each of its fibres stands alone.
    std::map<std::pair<std::string, std::string>, std::vector<CableTrace>> parts;
    for (const CableTrace& trace : traces_)
      parts[{trace.cable, trace.cable.empty() ? trace.fibre : ""}].push_back(trace);
    std::vector<std::pair<std::string, std::string>> order;
    order.reserve(parts.size());
    for (const auto& part : parts) order.push_back(part.first);
    std::sort(order.begin(), order.end(), [](const auto& a, const auto& b) {
      if (a.first != b.first) return NaturalLess(a.first, b.first);
      return NaturalLess(a.second, b.second);
    });
    for (const auto& key : order) AddPart(key.first, parts.at(key), parts.size() == 1);
    return std::move(job_);
  }

 private:
  void AddPart(const std::string& cable, const std::vector<CableTrace>& traces, bool only) {
    CableOptions asked;
    asked.reels = options_.reels;
    asked.limits = options_.limits;
    const CableReport report = MakeCable(traces, asked);
    AddTotals(job_, report);
    if (only) {
      job_.cable = cable;
      job_.joints = report.joints;
    }
    for (const CableRow& row : report.rows) AddFibre(cable, row, report.reels);
  }

  void AddFibre(const std::string& cable, const CableRow& row, const Reels& reels) {
    Fibre fibre;
    fibre.cable = cable;
    fibre.name = row.fibre;
    fibre.findings = row.findings;
    fibre.row = row;
    for (const CableNumbers& numbers : row.wavelengths)
      fibre.waves.push_back(WaveOf(numbers, Find(numbers.fileA), Find(numbers.fileB), reels));
    NumberPlaces(fibre.waves);
    if (job_.judged || !row.findings.empty()) {
      fibre.verdict = row.verdict;
      ++(row.verdict == Verdict::kFail ? job_.failing : job_.passing);
    }
    job_.fibres.push_back(std::move(fibre));
  }

  const PicturedTrace* Find(const std::string& file) const {
    const auto found = pictures_.find(file);
    return file.empty() || found == pictures_.end() ? nullptr : found->second;
  }

  const PaperOptions& options_;
  std::vector<CableTrace> traces_;
  std::map<std::string, const PicturedTrace*> pictures_;  // by file
  Job job_;
};

}  // namespace

Job MakeJob(const std::vector<PicturedTrace>& traces, const PaperOptions& options) {
  return JobMaker(traces, options).Made();
}

}  // namespace reflyze::paper
