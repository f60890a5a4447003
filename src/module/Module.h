// SPDX-License-Identifier: Apache-2.0
#pragma once

// The boundary between a host process and the module: four exported functions with plain names. A host loads
// the module, calls DllMain with reason 0 and DllInit, and then ServiceFunction once for each piece of work,
// on records that it built and owns. Nothing but the log, the instance handle and the two texts below
// outlives a call.
//
// Not to be called by two threads at once on one record. On different records it may be, once DllMain and
// DllInit have returned: each call has an engine of its own, the tables of the level scale are filled while
// the module is loaded and only read then, and what counts events for diagnostics is atomic. The log must
// bear several threads.

#include "src/module/Auto.h"
#include "util/tstring.h"

class TLogFile;

#define REFLYZE_EXPORT __attribute__((visibility("default")))

extern "C" {

// With `reason` 0: keeps `instance` and makes name and version of the module known. Always 1.
REFLYZE_EXPORT int DllMain(void* instance, int reason, void* reserved);

// Hands over the host's log, which stays the host's. Null turns logging off.
REFLYZE_EXPORT void DllInit(TLogFile* log);

// Copies the version of the module, such as "3.15.12.14", into `buffer` of `size` characters and returns how
// many were written: at most the length of the text and its terminating zero. A smaller buffer gets the head
// of the text and no zero, so ask for the size that it takes first, with a null buffer.
REFLYZE_EXPORT int GetModuleVersion(char* buffer, int size);

// Runs one command (see TCmdASF) on the records in `params`. The analyses give 1 whatever they find; so does
// a command that the module does not know. The comparison gives one of TMonitorResult. `value` is never
// written. Exceptions of a broken record pass through.
REFLYZE_EXPORT int ServiceFunction(TCmdASF cmd, long& value, void** params);

}  // extern "C"

namespace QRTAUTODll {

extern TString DllPath;       // file name of the module, empty until InitModuleInfo
extern TString DllVersion;    // its version, empty until InitModuleInfo
extern void* InstanceHandle;  // what the host called DllMain with

void InitModuleInfo();

// The record of an error in the mathematics library, by the name that such handlers know it under.
struct _exception;

// Says that every error of the mathematics library was dealt with and needs no message: 1.
int _matherr(_exception* error);

}  // namespace QRTAUTODll
