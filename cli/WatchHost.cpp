// SPDX-License-Identifier: Apache-2.0
#include "cli/WatchHost.h"

#ifndef REFLYZE_LINKED_MODULE
#include <dlfcn.h>
#endif

#include "cli/LoadBeside.h"
#include "reflyze/error.h"
#include "reflyze/version.h"

namespace reflyze::cli {
namespace {

std::string WatchName() {
  const std::string version = LibraryVersion();
  return "libreflyze-watch.so." + version.substr(0, version.find('.'));
}

const WatchDoor* OpenWatchDoor() {
  try {
    [[maybe_unused]] void* const library = LoadBeside(WatchName(), REFLYZE_LIBRARY_FROM_PROGRAM);
#ifndef REFLYZE_LINKED_MODULE
    if (void* const symbol = dlsym(library, "ReflyzeWatchDoor"))
      return reinterpret_cast<const WatchDoor* (*)()>(symbol)();
#endif
    return nullptr;
  } catch (const Error& error) {
    throw Error(ErrorKind::kUnreadable, error.file(),
                error.sentence() + "; a centre needs it (Debian package reflyze-watch)");
  }
}

}  // namespace

const WatchDoor& LoadedWatch() {
  static const WatchDoor* const door = OpenWatchDoor();
  // Values cross the door, so that both sides have to be built alike.
  if (door == nullptr || door->version != LibraryVersion() || door->optionsBytes != sizeof(CentreOptions))
    throw Error(ErrorKind::kUnreadable, WatchName(), "is not of this version, " + LibraryVersion());
  return *door;
}

}  // namespace reflyze::cli
