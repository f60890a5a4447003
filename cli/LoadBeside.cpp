// SPDX-License-Identifier: Apache-2.0
#include "cli/LoadBeside.h"

#include <limits.h>
#include <unistd.h>

#include "reflyze/error.h"

#ifndef REFLYZE_LINKED_MODULE
#include <dlfcn.h>
#endif

namespace reflyze::cli {

std::string FolderOfProgram() {
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  if (length <= 0) return ".";
  const std::string whole(path, static_cast<size_t>(length));
  return whole.substr(0, whole.rfind('/'));
}

std::string FolderOfPage() {
  const std::string beside = FolderOfProgram();
  for (const std::string& folder : {beside + "/web", beside + "/" REFLYZE_SHARE_FROM_PROGRAM "/web"}) {
    if (access((folder + "/engine.wasm").c_str(), R_OK) == 0) return folder;
  }
  return "";
}

#ifdef REFLYZE_LINKED_MODULE
void* LoadBeside(const std::string& name, const std::string&) {
  throw Error(ErrorKind::kUnreadable, name, "can't be loaded on this system");
}
#else
void* LoadBeside(const std::string& name, const std::string& fromProgram) {
  std::string reasons;
  const std::string folder = FolderOfProgram();
  for (const std::string& place : {folder + "/" + name, folder + "/" + fromProgram + "/" + name}) {
    if (access(place.c_str(), R_OK) != 0) continue;
    if (void* handle = dlopen(place.c_str(), RTLD_NOW | RTLD_LOCAL)) return handle;
    reasons = dlerror();
  }
  throw Error(ErrorKind::kUnreadable, name,
              reasons.empty() ? "not found beside the program nor where it was installed" : reasons);
}
#endif

}  // namespace reflyze::cli
