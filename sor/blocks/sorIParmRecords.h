// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sor/fields/sorFields.h"
#include "util/export.h"

// The records inside the block of the instrument's own parameters.

namespace reflyze {

// Passes over what a later version has put behind the `known` bytes of a record that tells its own length. A
// file that has come to its end has nothing to pass over.
inline void SkipExtension(FieldReader& reader, unsigned int& length, unsigned int known) {
  if (length <= known) return;
  if (!reader.Ended()) reader.file().Seek(reader.file().Tell() + (length - known));
  length = known;
}

}  // namespace reflyze

// How the points were taken in one measurement mode.
struct REFLYZE_API TMeasurementMode {
  int NPMM = 0;  // number of points
  int AVMM = 0;  // number of averages
  short PWU = 0;
  // Receiver bandwidths. BWU1 of the first mode is also where the measured fall of a pulse is kept, in dB/km.
  short BWU1 = 0;
  short BWU2 = 0;
  short GU = 0;
  short SER = 1;
  signed char SUMC = 1;
  signed char TAKT = 2;

  // The first files kept the number of points and averages of the first mode in the fixed parameters only.
  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v, bool first) {
    v.Int("NPMM", b.NPMM, first ? 201 : 0);
    v.Int("AVMM", b.AVMM, first ? 201 : 0);
    v.Int("PWU", b.PWU);
    v.Int("BWU1", b.BWU1);
    v.Int("BWU2", b.BWU2);
    v.Int("GU", b.GU);
    v.Int("SER", b.SER);
    v.Int("SUMC", b.SUMC);
    v.Int("TAKT", b.TAKT);
  }
};

// State of the instrument at the measurement. On file the record says its own length, so that a later version
// may append to it: what lies beyond the known bytes is passed over and dropped.
struct REFLYZE_API TQRTServiceInfo {
  static constexpr unsigned int kServiceBytes = 36;

  unsigned int valid = 0;               // 0 or 1
  unsigned int charger = 0;             // 0 or 1: the charger was connected
  unsigned int battery_mv = 0;          // battery voltage, mV
  unsigned int length = kServiceBytes;  // bytes of this record
  unsigned int ram_total = 0;
  unsigned int ram_free = 0;
  unsigned int brightness = 0;  // of the display, per cent
  unsigned int flash_free = 0;  // free space for files
  unsigned int in_buffer = 0;   // traces in the buffer

  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v) {
    v.Int("valid", b.valid);
    v.Int("charger", b.charger);
    v.Int("battery_mv", b.battery_mv);
    v.Int("length", b.length);
    v.Int("ram_total", b.ram_total);
    v.Int("ram_free", b.ram_free);
    v.Int("brightness", b.brightness);
    v.Int("flash_free", b.flash_free);
    v.Int("in_buffer", b.in_buffer);
    v.OnRead(b, [](auto& info, auto& reader) {
      info.valid = info.valid != 0;
      info.charger = info.charger != 0;
      reflyze::SkipExtension(reader, info.length, kServiceBytes);
    });
  }
};

// One end of the fibre span in the trace, with its own length on file as above.
struct REFLYZE_API TSpanLocationInfo {
  static constexpr unsigned int kSpanBytes = 12;
  static constexpr unsigned int kBegin = 3;
  static constexpr unsigned int kEnd = 4;

  unsigned int length = kSpanBytes;
  int value = 0;
  unsigned int type = kBegin;

  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v) {
    v.Int("length", b.length);
    v.Int("value", b.value);
    v.Int("type", b.type);
    v.OnRead(b, [](auto& span, auto& reader) { reflyze::SkipExtension(reader, span.length, kSpanBytes); });
  }
};

// The older form of what the record says about the splitters of a passive optical network. The newer form is
// in the block itself; reading keeps the two in step. Its two halves stand apart on file, the second with its
// own length as above.
struct PonParameters {
  static constexpr unsigned int kPonBytes = 8;

  int PonEnabled = 0;            // 0 or 1
  unsigned int PonSplitter = 1;  // outputs of the splitter
  unsigned int PonLength = kPonBytes;
  unsigned int PonRecordVersion = 1;  // 2: two splitters in a row

  template <class Self, class Visitor>
  static void Fields(Self& b, Visitor& v) {
    v.Int("PonEnabled", b.PonEnabled, 217);
    v.Int("PonSplitter", b.PonSplitter, 217);
    v.OnRead(b, [](auto& pon) { pon.PonEnabled = pon.PonEnabled != 0; });
  }
  template <class Self, class Visitor>
  static void Fields2(Self& b, Visitor& v) {
    v.Int("PonLength", b.PonLength, 224);
    v.Int("PonRecordVersion", b.PonRecordVersion, 224);
    v.OnRead(b, [](auto& pon, auto& reader) { reflyze::SkipExtension(reader, pon.PonLength, kPonBytes); });
  }
};
