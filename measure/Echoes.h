// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include "measure/FirstModel.h"
#include "measure/LinkFit.h"

namespace reflyze {

// Which places of a link are echoes of two or three others: nothing stands there. `mirrorDb` is the
// backscatter coefficient for the energy of the pulse: how far the line of a fibre lies under what a mirror
// would send.
std::vector<bool> EchoesOf(const std::vector<PlaceNote>& notes, const LinkFit& fit, double mirrorDb);

}  // namespace reflyze
