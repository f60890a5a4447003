// SPDX-License-Identifier: Apache-2.0
#include "cli/ReportPage.h"

#include <algorithm>
#include <filesystem>

#include "cli/LoadBeside.h"
#include "cli/Session.h"
#include "reflyze/text.h"

namespace reflyze::cli {
namespace {

constexpr const char* kPage = "web/reflyze.html";

std::string PlaceOfPage(const std::string& asked) {
  if (!asked.empty()) return asked;
  const std::string beside = FolderOfProgram();
  for (const std::string& place :
       {beside + "/" + kPage, beside + "/" REFLYZE_SHARE_FROM_PROGRAM "/" + kPage}) {
    std::error_code none;
    if (std::filesystem::exists(place, none)) return place;
  }
  throw Error(ErrorKind::kUnreadable, kPage,
              "is neither beside the program nor where it was installed; scripts/build-web builds it");
}

}  // namespace

int WritePage(Session& session, const InputArguments& inputs, const PageReport& report,
              const std::string& file) {
  const std::string place = PlaceOfPage(report.page);
  const std::vector<char> text = session.Read(place);
  std::vector<Output> traces;
  int status = kDone;
  for (size_t i = 0; i < inputs.files.size(); ++i) {
    const std::string& name = inputs.files[i].name;
    try {
      RequireFile(inputs.files, i);
      std::vector<char> bytes = session.Read(name);
      Output trace = {ShownName(inputs.files[i].below.empty() ? name : inputs.files[i].below),
                      {bytes.begin(), bytes.end()}};
      OpenOptions open;
      open.encoding = session.encoding;
      const Trace read = Trace::FromBytes(name, std::move(bytes), open);
      if (!report.told) session.Warn(read.Warnings());
      traces.push_back(std::move(trace));
    } catch (const Error& error) {
      if (!report.told) session.Warn(error.what());
      status = std::max<int>(status, StatusOf(error));
    }
  }
  if (traces.empty()) return status;
  SaveTogether({{file, PageWith({text.begin(), text.end()}, traces, report.settings)}});
  return status;
}

}  // namespace reflyze::cli
