// SPDX-License-Identifier: Apache-2.0
#include "cli/PaperHost.h"

#ifndef REFLYZE_LINKED_MODULE
#include <dlfcn.h>
#endif

#include "cli/LoadBeside.h"
#include "reflyze/error.h"
#include "reflyze/version.h"

namespace reflyze::cli {
namespace {

constexpr const char* kDoorName = "ReflyzePaperDoor";

std::string PaperName() {
  const std::string version = LibraryVersion();
  return "libreflyze-paper.so." + version.substr(0, version.find('.'));
}

void* LoadPaper() {
  try {
    return LoadBeside(PaperName(), REFLYZE_LIBRARY_FROM_PROGRAM);
  } catch (const Error& error) {
    throw Error(ErrorKind::kUnreadable, error.file(),
                error.sentence() + "; reports need it (Debian package reflyze-paper)");
  }
}

const PaperDoor* OpenPaperDoor() {
#ifdef REFLYZE_LINKED_MODULE
  LoadPaper();
  return nullptr;
#else
  void* symbol = dlsym(LoadPaper(), kDoorName);
  return symbol == nullptr ? nullptr : reinterpret_cast<const PaperDoor* (*)()>(symbol)();
#endif
}

}  // namespace

const PaperDoor& LoadedPaper() {
  static const PaperDoor* const door = OpenPaperDoor();
  // Values cross the door, so that both sides have to be built alike.
  if (door == nullptr || door->version != LibraryVersion() || door->optionsBytes != sizeof(PaperOptions) ||
      door->pictureBytes != sizeof(PicturedTrace))
    throw Error(ErrorKind::kUnreadable, PaperName(), "is not of this version, " + LibraryVersion());
  return *door;
}

}  // namespace reflyze::cli
