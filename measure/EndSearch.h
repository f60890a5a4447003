// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "measure/FirstModel.h"
#include "measure/LinkFit.h"
#include "measure/Noise.h"

namespace reflyze {

// Where the light stops being fibre. Both say whether they have changed anything; the fit then has to follow.

// A search for large losses may stop at a splitter, or at a bend. Where light of a fibre follows the last
// place, it is no end: a section is added up to where that light is gone.
bool ProlongFibre(const Powers& powers, const NoiseModel& noise, NotedModel& noted);

// A last section that shows no light is none, unless a reflection stands at its end. `fit` is that of
// `noted`.
bool CutDarkness(const Powers& powers, const NoiseModel& noise, const LinkFit& fit, NotedModel& noted);

}  // namespace reflyze
