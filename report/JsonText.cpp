// SPDX-License-Identifier: Apache-2.0
#include "report/JsonText.h"

#include <cmath>

#include "lib/Decimal.h"
#include "lib/Text.h"

namespace reflyze {
namespace {

using Json = nlohmann::ordered_json;

std::string QuotedText(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : ValidUtf8(text)) {
    if (c == '"' || c == '\\') {
      quoted += '\\';
      quoted += c;
    } else if (IsControl(c)) {
      quoted += c == '\n' ? "\\n" : c == '\t' ? "\\t" : c == '\r' ? "\\r" : Format("\\u%04x", c);
    } else {
      quoted += c;
    }
  }
  return quoted + '"';
}

// A quantity keeps its decimal point even where it is whole: some readers tell real numbers by it.
std::string NumberText(double value) {
  if (!std::isfinite(value)) return "null";
  if (value == 0.0) return "0.0";
  const std::string text = ShortestText(value);
  return text.find_first_of(".e") == std::string::npos ? text + ".0" : text;
}

class Writer {
 public:
  explicit Writer(int indent) : indent_(indent) {}

  void Write(const Json& value) {
    if (value.is_object()) {
      WriteList(value, '{', '}', [&](const auto& item) {
        text_ += QuotedText(item.key()) + (indent_ < 0 ? ":" : ": ");
        Write(item.value());
      });
    } else if (value.is_array()) {
      WriteList(value, '[', ']', [&](const auto& item) { Write(item.value()); });
    } else if (value.is_string()) {
      text_ += QuotedText(value.get_ref<const std::string&>());
    } else if (value.is_number_float()) {
      text_ += NumberText(value.get<double>());
    } else if (value.is_number_unsigned()) {
      text_ += std::to_string(value.get<std::uint64_t>());
    } else if (value.is_number_integer()) {
      text_ += std::to_string(value.get<std::int64_t>());
    } else {
      text_ += value.is_boolean() ? value.get<bool>() ? "true" : "false" : "null";
    }
  }
  std::string Take() { return std::move(text_); }

 private:
  template <class Each>
  void WriteList(const Json& list, char open, char close, Each each) {
    text_ += open;
    ++depth_;
    bool first = true;
    for (const auto& item : list.items()) {
      if (!first) text_ += ',';
      first = false;
      NewLine();
      each(item);
    }
    --depth_;
    if (!first) NewLine();
    text_ += close;
  }
  void NewLine() {
    if (indent_ >= 0) text_ += '\n' + std::string(static_cast<size_t>(indent_ * depth_), ' ');
  }

  const int indent_;
  int depth_ = 0;
  std::string text_;
};

}  // namespace

std::string JsonText(const Json& value, int indent) {
  Writer writer(indent);
  writer.Write(value);
  return writer.Take();
}

Json NumberOrNull(std::optional<double> value) { return value ? Json(*value) : Json(nullptr); }

nlohmann::ordered_json WordOrNull(Verdict verdict) {
  return verdict == Verdict::kNone ? nlohmann::ordered_json(nullptr)
                                   : nlohmann::ordered_json(WordOf(verdict));
}

}  // namespace reflyze
