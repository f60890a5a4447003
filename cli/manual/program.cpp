// SPDX-License-Identifier: Apache-2.0

// Writes the manual page and the completions of the program: reflyze_manual DOCS FOLDER.

#include <CLI/CLI.hpp>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>

#include "cli/Commands.h"
#include "cli/Session.h"
#include "cli/manual/Manual.h"
#include "reflyze/version.h"

namespace {

namespace fs = std::filesystem;

std::map<std::string, std::string> DocumentsIn(const fs::path& folder) {
  std::map<std::string, std::string> documents;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.path().extension() != ".md") continue;
    std::ifstream in(entry.path(), std::ios::binary);
    documents[fs::relative(entry.path(), folder).generic_string()] = {std::istreambuf_iterator<char>(in), {}};
  }
  return documents;
}

void Store(const fs::path& file, const std::string& text) {
  std::ofstream out(file, std::ios::binary);
  out << text;
  if (!out.flush()) throw std::runtime_error(file.string() + " can't be written");
}

}  // namespace

int main(int argc, char** argv) {
  using namespace reflyze::cli;
  if (argc != 3) {
    std::cerr << "usage: reflyze_manual DOCS FOLDER\n";
    return kUsage;
  }
  try {
    Session session(std::cin, std::cout, std::cerr);
    CLI::App app;
    DescribeProgram(app, session);
    const manual::Program program = manual::DescriptionOf(app);
    const fs::path folder = argv[2];
    Store(folder / "reflyze.1", ManPage(program, reflyze::ModuleVersion(), DocumentsIn(argv[1])));
    Store(folder / "reflyze.bash", BashCompletion(program));
    Store(folder / "_reflyze", ZshCompletion(program));
    Store(folder / "reflyze.fish", FishCompletion(program));
  } catch (const std::exception& error) {
    std::cerr << "reflyze_manual: " << error.what() << "\n";
    return kUnreadable;
  }
  return kDone;
}
