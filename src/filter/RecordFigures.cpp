// SPDX-License-Identifier: Apache-2.0
#include "src/filter/RecordFigures.h"

#include "ref/refAuto.h"

namespace reflyze {

double SettleNoiseFloor(TSorData& sor) { return RefAutoReSetNF(&sor); }

double SettleReceiverRate(TSorData& sor) { return RefAutoGetDbOnOwt(&sor); }

}  // namespace reflyze
