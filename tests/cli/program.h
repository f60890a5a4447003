// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "cli/Session.h"
#include "sim/Simulate.h"
#include "sor/sorData.h"
#include "tests/support/links.h"

// The program as a user meets it: arguments in, exit status and two streams out, files in a folder of its
// own.
class ProgramTest : public testing::Test {
 protected:
  struct Result {
    int status;
    std::string out, err;
  };

  ProgramTest() {
    std::string pattern = (std::filesystem::temp_directory_path() / "reflyze-test-XXXXXX").string();
    folder = mkdtemp(pattern.data());
  }
  ~ProgramTest() override { std::filesystem::remove_all(folder); }

  Result Run(std::vector<std::string> arguments, const std::string& input = "") const {
    arguments.insert(arguments.begin(), "reflyze");
    std::vector<const char*> argv;
    for (const std::string& argument : arguments) argv.push_back(argument.c_str());
    std::istringstream in(input);
    std::ostringstream out, err;
    const int status = reflyze::cli::Main(static_cast<int>(argv.size()), argv.data(), in, out, err);
    return {status, out.str(), err.str()};
  }

  std::string File(const std::string& name) const { return folder + "/" + name; }
  std::string Store(const std::string& name, const std::string& bytes) const {
    std::ofstream(File(name), std::ios::binary) << bytes;
    return File(name);
  }
  static std::string Load(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }
  static nlohmann::json Json(const Result& result) { return nlohmann::json::parse(result.out); }

  std::string StoreTrace(const std::string& name) const {
    reflyze::sim::SimulatedTrace trace = reflyze::sim::Simulate(MetroLink(), 3);
    return Store(name, Bytes(*trace.record));
  }
  static reflyze::sim::Link MetroLink() { return reflyze::support::MetroLink(); }
  static std::string Bytes(TSorData& record) { return reflyze::support::BytesOf(record); }

  // One line on standard error, nothing on standard output.
  static void ExpectOneLineError(const Result& result, int status, const std::string& what) {
    EXPECT_EQ(result.status, status) << what << ": " << result.err;
    EXPECT_EQ(result.out, "") << what;
    EXPECT_EQ(result.err.rfind("reflyze: ", 0), 0u) << what << ": " << result.err;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << what << ": " << result.err;
  }

  std::string folder;
};
