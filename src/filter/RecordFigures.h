// SPDX-License-Identifier: Apache-2.0
#pragma once

class TSorData;

// Two figures of a trace that are stored in the record when they are asked for. The engine asks for them here
// and nowhere else, so that whoever looks for what changes a record finds all of it.

namespace reflyze {

// Settles the noise floor, in dB, from what the record stores, what the instrument noted and what the end of
// the trace shows. Stores it in the fixed parameters; may set the noise scale factor and the level floor MAX,
// and lift the linear trace. Whoever holds the linear trace takes it anew.
double SettleNoiseFloor(TSorData& sor);

// Rate in dB per OWT at which the receiver falls behind strong light. Where no bandwidth is on record it is
// measured at the launch, and stored as BWU1. That settles the noise floor too.
double SettleReceiverRate(TSorData& sor);

}  // namespace reflyze
