// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "util/export.h"

class TSorFile;

namespace reflyze {

// Bounds what the reading of one record may cost, in time and in memory, whatever its bytes say.
//
// A record places its blocks by sizes that need not be true, so blocks may overlap, and records inside
// records may lead back to themselves: some 30,000 lines of a map, each over the same megabytes, or two such
// maps in each other, make endless work of a small file. No true record is read much more than once. So
// everything that is read is charged to an account, and an account that exceeds a few times what the stream
// has given ends in the state sfReadError.
//
// An object of this class stands for one level of reading and lives on the stack. Levels on the same stream
// share the account of the outermost. Streams are read by one thread at a time, each thread has accounts of
// its own.
class REFLYZE_API ReadBudget {
 public:
  static constexpr int kDeepestNesting = 64;  // records inside records; harmless to a stack of 1 MB

  explicit ReadBudget(TSorFile& file);
  ReadBudget(const ReadBudget&) = delete;
  ReadBudget& operator=(const ReadBudget&) = delete;
  ~ReadBudget();

  // Whether one more level may be opened on this stream. If not, the state becomes sfReadError.
  static bool MayNest(TSorFile& file);
  // Records around the one that is being read: 0 if it stands alone.
  static int Depth(const TSorFile& file);
  // Charges the bytes from `start` to where the stream stands, and `objects` small objects made for them.
  static void Charge(TSorFile& file, unsigned long start, long objects = 0);
  // Charges objects that a file announces and does not hold, of that size each, and says whether the reading
  // can still afford them. If not, the state becomes sfReadError. A stream without an account affords all.
  static bool Affords(TSorFile& file, long objects, unsigned long objectBytes);

 private:
  static ReadBudget* Innermost(const TSorFile& file);
  bool Add(unsigned long long bytes, unsigned long position);

  TSorFile& file_;
  ReadBudget* const outer_;    // the level that was innermost before, on whatever stream
  ReadBudget* const account_;  // the outermost level on this stream
  const int depth_;
  // Of the account: bytes charged, and the furthest place that was reached.
  unsigned long long charged_ = 0;
  unsigned long furthest_ = 0;
};

}  // namespace reflyze
