// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sor/sorData.h"

// A fibre measured from both ends. What a joint seems to lose holds the change of the backscatter coefficient
// there, which enters with the opposite sign from the other side: the mean of both directions is the loss of
// the joint (IEC 61746-1, ITU-T G.650.3). A time t of the second trace is M - t of the first, M being the end
// of the fibre that both share.
//
// Neither function tells the blocks that keep an entry for each key event, nor numbers the later events anew:
// that is the caller's.

// Brings the event tables of two directions into agreement: one end of the fibre, each event in both tables,
// matched events at one place where the trust in them asks for it, and in the table of `a` the mean losses.
// Gives
//   0  merged;
//   1  the pulse widths, 2 the data spacings differ by more than 1 %: both records stay as they are;
//   3  the ends differ by more than the trust in them allows: nothing but the ends has moved. Also where a
//      table has fewer than two events, or the trust interval of the first end is not a positive one: no
//      event has changed then.
// Unless the result is 1 or 2, the noise floor of both records is settled (see RefEventTrusting).
int RefEventBiDir(TSorData* a, TSorData* b);

// Puts the mirror image of an event of `source` into the table of `target`, behind the event at `after`, and
// measures it there; sections that reach into it are cut and their events measured anew. Nothing happens
// where `after` has no event behind it, for an `index` outside the table of `source`, and in a full table.
void RefEventInsBiDir(TSorData* target, TSorData* source, int after, int index);

namespace reflyze {

// RefEventBiDir in two steps, for callers that want the losses of both directions in between: first the
// tables agree, with the result as above, and event i of `a` is event (last - i) of `b`; then those of `a`
// take the means. An event that lies in the dead zone of another direction's event has no section to be
// measured on there: RefEventBiDir measures it all the same, and gives what a line through nothing gives.
// Here it keeps the loss that the other direction saw, and the events beside it keep theirs.
int MatchBiDir(TSorData* a, TSorData* b);
void AverageBiDir(TSorData* a, TSorData* b);

// Whether both sections of an event are long enough for its loss to be measured.
bool HasSections(const TSorData& sor, const TSorBlockKeyEvents1E& event);

}  // namespace reflyze
