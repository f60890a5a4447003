// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <vector>

#include "reflyze/record.h"

namespace reflyze::cli {

// What a thread had to say, in order. Calling an entry says it.
using Sayings = std::vector<std::function<void()>>;

// Several traces may be analysed at once, but one thread alone talks to the user. While an object of this
// class lives, what its thread says is kept. The thread that talks to the user says it when its turn has
// come.
class Aside {
 public:
  explicit Aside(Sayings& kept);
  Aside(const Aside&) = delete;
  Aside& operator=(const Aside&) = delete;
  ~Aside();

  // Says it now, or keeps it where the thread has an Aside.
  static void Say(std::function<void()> saying);

 private:
  Sayings* const outer_;
};

// The log of the program. Records and the module write to it from any thread, which a TLogFile by itself does
// not allow: its header goes out once, and its entries are to stand in the order of the traces.
class SpokenLog : public TLogFile {
 public:
  using TLogFile::TLogFile;
  void Error(char area, const char* id, const char* text) override;
  void Message(char area, const char* id, const char* text) override;
  void Warning(char area, const char* id, const char* text) override;
  void Data(const char* name, long value) override;
  void Info(const char* a, const char* b) override;
};

}  // namespace reflyze::cli
