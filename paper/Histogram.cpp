// SPDX-License-Identifier: Apache-2.0
#include "paper/Histogram.h"

#include <algorithm>

#include "paper/Scale.h"
#include "reflyze/cable.h"

namespace reflyze::paper {
namespace {

constexpr Colour kBar = {0.33, 0.40, 0.50};

// A bar's left edge in dB; that of the gains is below 0.
std::string EdgeOf(size_t bar, const Texts& texts) {
  return texts.Number(kHistogramDb * (static_cast<double>(bar) - 1.0), 2);
}

}  // namespace

void DrawHistogram(Canvas& canvas, const Box& box, const std::vector<int>& counts, const Texts& texts) {
  const int most = counts.empty() ? 0 : *std::max_element(counts.begin(), counts.end());
  if (most == 0) {
    canvas.Text(box.x, box.y + 12.0, texts["no-splices"], {7.6, false, kGrey});
    return;
  }
  const double bottom = box.y + box.height - 20.0, room = bottom - box.y - 12.0;
  const double step = box.width / static_cast<double>(counts.size());
  const Style small = {6.0, false, kGrey, Align::kCentre};
  for (size_t i = 0; i < counts.size(); ++i) {
    const double left = box.x + step * static_cast<double>(i), height = room * counts[i] / most;
    if (counts[i] > 0) {
      canvas.Fill(left + 1.0, bottom - height, step - 2.0, height, kBar);
      canvas.Text(left + step / 2.0, bottom - height - 2.5, std::to_string(counts[i]),
                  {6.4, true, kBlack, Align::kCentre});
    }
    if (i % 2 == 1) canvas.Text(left, bottom + 8.0, i == 1 ? "0" : EdgeOf(i, texts), small);
  }
  canvas.Line(box.x, bottom, box.x + box.width, bottom, kGrey, 0.5);
  canvas.Text(box.x + step / 2.0, bottom + 8.0, "< 0", {6.0, false, kGrey, Align::kCentre});
  Style unit = {6.8, true, kGrey, Align::kRight};
  canvas.Text(box.x + box.width, bottom + 16.5, "dB", unit);
}

}  // namespace reflyze::paper
