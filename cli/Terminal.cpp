// SPDX-License-Identifier: Apache-2.0
#include "cli/Terminal.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "reflyze/plot.h"
#include "reflyze/text.h"

namespace reflyze::cli {
namespace {

constexpr int kAnswerMs = 200;

int FromEnvironment(const char* name, int otherwise, int most) {
  const char* text = std::getenv(name);
  return text != nullptr && WhyNoNumber(text, 10.0, most).empty() ? std::atoi(text) : otherwise;
}

// What the terminal answers to the question for its kind: "ESC [ ? 62 ; 4 ; 22 c".
std::string AnswerOfTerminal() {
  constexpr char kQuestion[] = "\x1b[c";
  std::string answer;
  if (write(STDOUT_FILENO, kQuestion, sizeof kQuestion - 1) < 0) return answer;
  pollfd waiting = {STDIN_FILENO, POLLIN, 0};
  constexpr size_t kLongest = 64;
  while (answer.size() < kLongest && poll(&waiting, 1, kAnswerMs) > 0) {
    char letter = 0;
    if (read(STDIN_FILENO, &letter, 1) != 1) break;
    answer += letter;
    if (letter == 'c') break;
  }
  return answer;
}

}  // namespace

TerminalSize SizeOfTerminal() {
  TerminalSize size;
  winsize told = {};
  if (isatty(STDOUT_FILENO) != 0 && ioctl(STDOUT_FILENO, TIOCGWINSZ, &told) == 0 && told.ws_col > 0) {
    size.columns = std::clamp<int>(told.ws_col, 30, kMostPlotColumns);
    size.rows = std::clamp<int>(told.ws_row, 11, kMostPlotRows);
    return size;
  }
  size.columns = std::max(30, FromEnvironment("COLUMNS", size.columns, kMostPlotColumns));
  size.rows = std::max(11, FromEnvironment("LINES", size.rows, kMostPlotRows));
  return size;
}

bool TerminalShowsSixel() {
  if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) return false;
  termios before = {};
  if (tcgetattr(STDIN_FILENO, &before) != 0) return false;
  termios quiet = before;
  quiet.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  if (tcsetattr(STDIN_FILENO, TCSANOW, &quiet) != 0) return false;
  const std::string answer = AnswerOfTerminal();
  tcsetattr(STDIN_FILENO, TCSANOW, &before);
  return answer.find(";4;") != std::string::npos || answer.find(";4c") != std::string::npos;
}

}  // namespace reflyze::cli
