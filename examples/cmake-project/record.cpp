// SPDX-License-Identifier: Apache-2.0

// Fields of a record that no table has: its own classes, by <reflyze/record.h>.
//
//   record TRACE

#include <reflyze/record.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const auto trace = reflyze::Trace::Open(argv[1]);
  const TSorData& stored = reflyze::RecordOf(trace);
  std::printf("%s, %d points\n", stored.SupParams->MFID.c_str(),
              static_cast<int>(stored.DataPts->GetPointsNum()));

  TSorData record;  // the same by the record's own reader
  if (record.Read(argv[1], "rb") != sfOk) return 3;
  for (int i = 0; i < record.KeyEvents->TNKE; ++i) {
    const TSorBlockKeyEvents1E& event = *record.KeyEvents->events->GetData(i);
    std::printf("%d at %d, %.3f dB\n", event.EN, static_cast<int>(event.EPT), event.GetEL());
  }
}
