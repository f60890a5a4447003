// SPDX-License-Identifier: Apache-2.0

// What an edit has changed.

#include "lib/Text.h"
#include "reflyze/report.h"
#include "report/JsonText.h"

namespace reflyze {

std::string TextOf(const EditedFile& edited) {
  const std::string name = ShownName(edited.file);
  if (edited.changes.empty()) return name + ": nothing changes\n";
  std::string text;
  for (const FieldChange& change : edited.changes)
    text +=
        name + ": " + change.field + ": " + OneLine(change.before) + " -> " + OneLine(change.after) + "\n";
  return text;
}

std::string JsonOf(const EditedFile& edited) {
  nlohmann::ordered_json json = {{"file", edited.file}};
  json["changes"] = nlohmann::ordered_json::array();
  for (const FieldChange& change : edited.changes)
    json["changes"].push_back({{"field", change.field}, {"before", change.before}, {"after", change.after}});
  json["warnings"] = nlohmann::ordered_json::array();
  for (const Warning& warning : edited.warnings) json["warnings"].push_back(warning.text);
  return JsonText(json) + "\n";
}

}  // namespace reflyze
