// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "cli/Commands.h"
#include "cli/Job.h"
#include "cli/Options.h"
#include "cli/PaperHost.h"
#include "cli/ReportPage.h"
#include "cli/Session.h"
#include "reflyze/files.h"
#include "reflyze/text.h"

namespace reflyze::cli {
namespace {

constexpr std::size_t kLargestLogoFile = 1u << 24;  // bytes

struct ReportCommand {
  Job job;
  std::string file;  // to be written
  PaperOptions paper;
  std::string size = "a4";
  std::string logo;  // file
  std::string date;  // of the report
  PageReport page;   // for one with traces in it
  ThresholdOptions thresholds;
  AnalyseOptions analysis;
  LinkOptions link;
  bool noReels = false;
};

// Days are those of the Gregorian calendar, counted from 1970 (H. Hinnant's formula).
long long DaysOf(long long year, int month, int day) {
  year -= month <= 2 ? 1 : 0;
  const long long era = year / 400, ofEra = year - era * 400;
  const long long ofYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  return era * 146097 + ofEra * 365 + ofEra / 4 - ofEra / 100 + ofYear - 719468;
}

// YYYY-MM-DD as seconds since 1970; none for what is no such day.
std::optional<long long> SecondsOf(const std::string& text) {
  int year = 0, month = 0, day = 0, length = 0;
  if (text.size() != 10 || std::sscanf(text.c_str(), "%4d-%2d-%2d%n", &year, &month, &day, &length) != 3 ||
      length != 10)
    return std::nullopt;
  constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (year < 1970 || month < 1 || month > 12 || day < 1) return std::nullopt;
  const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  if (day > kDays[month - 1] + (month == 2 && leap ? 1 : 0)) return std::nullopt;
  return DaysOf(year, month, day) * 86400;
}

// The day of the report: the one asked for, else that of a build that is to be repeatable, else today.
long long DayOf(const ReportCommand& options) {
  if (!options.date.empty()) return *SecondsOf(options.date);
  const char* epoch = std::getenv("SOURCE_DATE_EPOCH");
  if (epoch != nullptr && WhyNoNumber(epoch, 0.0, 253402300799.0).empty()) return std::atoll(epoch);
  return static_cast<long long>(std::time(nullptr));
}

// The name under which a trace of a file that holds several is shown, from 0.
std::string NameOfPart(const std::string& file, int part) {
  std::filesystem::path path = file;
  const std::string number = " (" + std::to_string(part + 1) + ")";
  return path.replace_filename(path.stem().string() + number + path.extension().string()).string();
}

// Each trace of a file. Where one file holds several, the wavelength is that of the record; what has the
// wavelength of another trace, such as the same fibre with a longer pulse, is a page of its own.
std::vector<PicturedTrace> PicturesOf(const Trace& file, const AnalyseOptions& analysis) {
  const int parts = file.TraceCount();
  std::vector<PicturedTrace> pictures;
  if (parts < 2) return {PictureOf(file, analysis)};
  std::set<int> wavelengths;
  for (int i = 0; i < parts; ++i) {
    PicturedTrace picture = PictureOf(file.Part(i), analysis);
    CableTrace& trace = picture.trace;
    trace.file = NameOfPart(trace.file, i);
    trace.wavelengthNm = trace.recordNm;
    if (!wavelengths.insert(trace.wavelengthNm).second) {
      trace.fibre = std::filesystem::path(trace.file).stem().string();
      trace.cable = trace.direction = "";
    }
    pictures.push_back(std::move(picture));
  }
  return pictures;
}

bool IsPage(const std::string& file) {
  const std::string ending = ".html";
  return file.size() > ending.size() && file.compare(file.size() - ending.size(), ending.size(), ending) == 0;
}

// What holds for a report of any kind. A document of limits may come through a pipe, and is read once.
void SettleAnalysis(Session& session, ReportCommand& options) {
  PageSettings& page = options.page.settings;
  page.limits = ReadLimitsText(session, options.link);
  page.limitsName = ShownName(options.link.limits);
  if (!options.link.limits.empty()) options.paper.limits = Limits::FromText(page.limitsName, page.limits);
  if (!options.noReels) options.paper.reels = page.reels = options.link.AskedReels();
  options.analysis.thresholds = page.thresholds = options.thresholds.thresholds;
  options.analysis.document = ReadDocument(session, options.thresholds);
}

// Whatever is wrong with what was asked for is said before anything is measured.
const PaperDoor& SettlePaper(Session& session, ReportCommand& options) {
  const PaperDoor& paper = LoadedPaper();
  const std::vector<std::string> languages = paper.languages();
  if (std::find(languages.begin(), languages.end(), options.paper.language) == languages.end())
    throw Error(ErrorKind::kUsage, "", "\"" + options.paper.language + "\" is no language of reports");
  options.paper.size = options.size == "letter" ? PaperSize::kLetter : PaperSize::kA4;
  options.paper.dateUtc = DayOf(options);
  if (!options.logo.empty()) {
    const std::vector<char> bytes = session.Read(options.logo, kLargestLogoFile);
    options.paper.logo.assign(bytes.begin(), bytes.end());
  }
  SettleAnalysis(session, options);
  paper.reportOf(options.file, {}, options.paper);
  return paper;
}

// A report that shows a number which fails its limits is no error, and yet a script has to know.
int StatusByLimits(const std::vector<PicturedTrace>& pictures, const PaperOptions& paper) {
  if (!paper.limits) return kDone;
  std::vector<CableTrace> traces;
  traces.reserve(pictures.size());
  for (const PicturedTrace& picture : pictures) traces.push_back(picture.trace);
  return AnyNumberFails(MakeCable(traces, {paper.reels, paper.limits})) ? kFails : kDone;
}

// All traces of a report, measured.
struct Measured {
  std::vector<PicturedTrace> pictures;
  int status = kDone;
  size_t count = 0;  // of those that could be
};

Measured MeasureAll(Session& session, ReportCommand& options) {
  const std::vector<InputFile>& files = options.job.inputs.files;
  std::vector<std::vector<PicturedTrace>> made(files.size());
  Measured all;
  all.status = RunJob(
      session, options.job,
      [&](size_t index) {
        made[index] = PicturesOf(session.Open(files[index].name), options.analysis);
        FileResult result;
        for (const PicturedTrace& picture : made[index]) {
          const std::vector<Warning>& warnings = picture.trace.table.warnings;
          result.warnings.insert(result.warnings.end(), warnings.begin(), warnings.end());
        }
        return result;
      },
      [&](size_t index, const FileResult& result) {
        all.count += made[index].size();
        if (!result.problem.empty()) {
          made[index].resize(1);
          made[index][0].trace.file = files[index].name;
          made[index][0].trace.problem = result.problem;
        }
        std::move(made[index].begin(), made[index].end(), std::back_inserter(all.pictures));
      });
  return all;
}

// The page measures by itself. Here that is done for the status alone, if there are limits.
int RunPage(Session& session, ReportCommand& options) {
  if (!options.thresholds.file.empty())
    throw Error(ErrorKind::kUsage, "",
                "a page can't take --thresholds along; --lt, --rt, --et and --ct it can");
  SettleAnalysis(session, options);
  SettleInputs(options.job.inputs);
  int status = kDone;
  if (options.paper.limits) {
    const Measured all = MeasureAll(session, options);
    status = std::max(all.status, StatusByLimits(all.pictures, options.paper));
    options.page.told = true;
  }
  return std::max(status, WritePage(session, options.job.inputs, options.page, options.file));
}

int RunReport(Session& session, ReportCommand& options) {
  if (IsPage(options.file)) return RunPage(session, options);
  const PaperDoor& paper = SettlePaper(session, options);
  SettleInputs(options.job.inputs);
  const Measured all = MeasureAll(session, options);
  // Each has been told; there is nothing to report on.
  if (all.count == 0) return all.status;
  SaveTogether(paper.reportOf(options.file, all.pictures, options.paper));
  return std::max(all.status, StatusByLimits(all.pictures, options.paper));
}

void AddPaperOptions(CLI::App& command, ReportCommand& options) {
  command.add_option("--language", options.paper.language, "Of the words: en, de, fr or es")
      ->type_name("NAME")
      ->capture_default_str();
  command.add_option("--paper", options.size, "a4 or letter")
      ->check(CLI::IsMember({"a4", "letter"}))
      ->capture_default_str();
  command.add_option("--title", options.paper.title, "On top of the summary")->type_name("TEXT");
  command.add_option("--logo", options.logo, "PNG picture for the head of each page")
      ->type_name(kFileValue)
      ->check(InputName());
  command
      .add_option("--page", options.page.page,
                  "For .html: the page that scripts/build-web has built, if not that of the installation")
      ->type_name(kFileValue)
      ->check(InputName());
  command.add_option("--date", options.date, "Day of the report, YYYY-MM-DD; today, if not given")
      ->type_name("DAY")
      ->check(CLI::Validator(
          [](const std::string& text) -> std::string {
            return SecondsOf(text) ? "" : "\"" + text + "\" is no day such as 2026-01-31";
          },
          ""));
}

}  // namespace

void AddReportCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<ReportCommand>();
  CLI::App* command =
      app.add_subcommand("report", "Make a report of traces, a page a fibre: PDF, a workbook or pictures");
  AddJobInputs(*command, options->job, "; those of one fibre share a page");
  command
      ->add_option("-o,--output", options->file,
                   "The report; its ending tells the kind: .pdf, .xlsx, .html, .svg or .png")
      ->required()
      ->type_name(kFileValue)
      ->check(OutputName());
  AddPaperOptions(*command, *options);
  AddThresholdOptions(*command, options->thresholds);
  AddLinkOptions(*command, options->link);
  command->add_flag("--no-reels", options->noReels, "The traces were taken without reels");
  command->callback([options, &session] {
    session.command = [options](Session& running) { return RunReport(running, *options); };
  });
}

}  // namespace reflyze::cli
