#include "cli/Options.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "cli/Text.h"

namespace reflyze::cli {
namespace {

// A check without a name of its own in the help: the option's text tells.
template <class Check>
CLI::Validator Unnamed(Check check) {
  return CLI::Validator([check](std::string& text) { return check(text); }, "");
}

}  // namespace

CLI::Validator NumberBetween(double least, double most) {
  return Unnamed([least, most](std::string& text) -> std::string {
    char* end = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    if (text.empty() || end != text.c_str() + text.size() || std::isnan(number)) {
      return "\"" + text + "\" is no number";
    }
    if (number < least || number > most)
      return Format("%s is not between %g and %g", text.c_str(), least, most);
    text = Format("%a", number);
    return "";
  });
}

CLI::Validator WholeNumber() {
  return Unnamed([](const std::string& text) -> std::string {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    return whole ? "" : "\"" + text + "\" is no whole number from 0 to 18446744073709551615";
  });
}

CLI::Validator TextEncoding() {
  return Unnamed([](const std::string& text) -> std::string {
    return IsTextEncoding(text) ? "" : "\"" + text + "\" is no encoding that is known here";
  });
}

bool NameTheSame(const std::string& one, const std::string& other) {
  std::error_code unknown;  // then the names decide
  const std::filesystem::path path = std::filesystem::weakly_canonical(one, unknown);
  const std::filesystem::path otherPath = std::filesystem::weakly_canonical(other, unknown);
  return one == other || (!unknown && path == otherPath);
}

CLI::Validator InputName() {
  return Unnamed(
      [](const std::string& text) -> std::string { return text.empty() ? "the name is empty" : ""; });
}

CLI::Validator OutputName() {
  return Unnamed([](const std::string& text) -> std::string {
    if (text.empty()) return "the name is empty";
    return text == "-" ? "a file must be named, standard output takes none" : "";
  });
}

}  // namespace reflyze::cli
