// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "paper/Job.h"

namespace reflyze::paper {

// A fibre at one wavelength with the rows of its table. The numbers of the link are those that the summary
// has, so that the two never differ.
Wave WaveOf(const CableNumbers& numbers, const PicturedTrace* a, const PicturedTrace* b, const Reels& reels);

// Numbers the places of all wavelengths together, along the fibre: what stands at one place has one number.
void NumberPlaces(std::vector<Wave>& waves);

}  // namespace reflyze::paper
