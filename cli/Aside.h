#pragma once

#include <functional>
#include <vector>

#include "reflyze/record.h"

namespace reflyze::cli {

// What a thread had to say, in order; each is said by calling it.
using Sayings = std::vector<std::function<void()>>;

// Several traces may be analysed at once, yet the program speaks with one voice: while an object of this
// class lives, all that its thread says is kept, for the thread that talks to the user to say when its turn
// has come.
class Aside {
 public:
  explicit Aside(Sayings& kept);
  Aside(const Aside&) = delete;
  Aside& operator=(const Aside&) = delete;
  ~Aside();

  // Says it now, or keeps it where the thread speaks aside.
  static void Say(std::function<void()> saying);

 private:
  Sayings* const outer_;
};

// The log of the program, which records and the module write to from any thread. A log itself is not for
// several threads at once: its header goes out once, and entries are to stand in the order of the traces.
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
