// SPDX-License-Identifier: Apache-2.0
#include "cli/Job.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <filesystem>
#include <new>

#include "cli/Aside.h"
#include "cli/OrderedWork.h"
#include "cli/Session.h"
#include "reflyze/text.h"
#include "reflyze/version.h"

namespace reflyze::cli {
namespace {

namespace fs = std::filesystem;

bool RestsOn(const CLI::Option& option, const std::vector<std::string>& apart) {
  const auto named = [&](const std::string& name) { return option.check_lname(name); };
  for (const char* name : {"recursive", "output", "jobs", "quiet", "resume"}) {
    if (named(name)) return false;
  }
  return option.count() > 0 && !option.get_positional() && std::none_of(apart.begin(), apart.end(), named);
}

// What the results of a command rest on beside its files: its options, and what stands in the documents that
// they name. Empty where a document can't be read twice, so that nothing is kept.
std::string IdentityOf(const CLI::App& command, const std::vector<std::string>& apart) {
  Digest digest;
  digest.Take(LibraryVersion() + " " + ModuleVersion() + " " + command.get_name());
  for (const CLI::Option* option : command.get_options()) {
    if (!RestsOn(*option, apart)) continue;
    digest.Take(option->get_name());
    for (const std::string& value : option->results()) {
      digest.Take(value);
      if (option->get_type_name() != kFileValue) continue;
      std::error_code unknown;
      if (!fs::is_regular_file(value, unknown)) return "";
      const std::vector<char> bytes = ReadFile(value);
      digest.Take(bytes.data(), bytes.size());
    }
  }
  return digest.Text();
}

// One job on its way.
class JobRun {
 public:
  JobRun(Session& session, const Job& job, const FileWork& work)
      : session_(session),
        job_(job),
        work_(work),
        identity_(job.inputs.below && job.command != nullptr ? IdentityOf(*job.command, job.apart) : ""),
        keeps_(!identity_.empty()),
        kept_(job.inputs.output, job.resume && keeps_) {}

  int Run(const std::function<void(size_t, const FileResult&)>& take) {
    int status = kDone;
    const size_t total = job_.inputs.files.size();
    OrderedWork<Outcome> work(total, job_.work.Threads(), [this](size_t i) { return MakeAside(i); });
    for (size_t i = 0; i < total; ++i) {
      if (job_.skipped.count(i) > 0) {
        work.Next();
        continue;
      }
      if (!job_.work.quiet) session_.Progress(i + 1, total, job_.inputs.files[i].name);
      Outcome outcome = work.Next();
      if (!job_.work.quiet) session_.Progress(0, 0, "");
      for (const auto& say : outcome.sayings) say();
      session_.Warn(outcome.result.warnings);
      if (!outcome.result.problem.empty()) session_.Warn(outcome.result.problem);
      if (outcome.fresh && !outcome.key.empty()) kept_.Keep(outcome.key, outcome.result);
      status = std::max(status, outcome.result.status);
      take(i, outcome.result);
    }
    return status;
  }

 private:
  struct Outcome {
    FileResult result;
    std::string key;  // empty for what is not kept
    bool fresh = false;
    Sayings sayings;  // entries of the log
  };

  Outcome MakeAside(size_t index) {
    Outcome outcome;
    const Aside aside(outcome.sayings);
    const std::string name = ShownName(job_.inputs.files[index].name);
    if (job_.skipped.count(index) > 0) return outcome;
    const auto fail = [&](const std::string& problem, int status) {
      outcome.result = FileResult();  // what could not be written is not listed
      outcome.result.problem = problem;
      outcome.result.status = status;
    };
    try {
      Make(index, outcome);
      return outcome;
    } catch (const Error& error) {
      fail(error.what(), StatusOf(error));
    } catch (const std::bad_alloc&) {
      fail(name + ": asks for more memory than there is", kUnreadable);
    } catch (const std::exception& error) {
      fail(name + ": " + error.what(), kUnreadable);
    }
    outcome.fresh = false;
    return outcome;
  }

  void Make(size_t index, Outcome& outcome) {
    RequireFile(job_.inputs.files, index);
    if (keeps_) outcome.key = KeyOf(index);
    std::optional<FileResult> earlier;
    if (job_.resume && !outcome.key.empty()) earlier = kept_.Find(outcome.key);
    outcome.fresh = !earlier;
    if (earlier) {
      outcome.result = std::move(*earlier);
      return;
    }
    outcome.result = work_(index);
    if (outcome.result.outputs.empty()) return;
    if (job_.inputs.below) {
      for (const Output& output : outcome.result.outputs) MakeFolderOf(output.name);
    }
    SaveTogether(outcome.result.outputs);
  }

  // The bytes that a result is made of, how, and where it goes. Standard input can be read once.
  std::string KeyOf(size_t index) const {
    Digest digest;
    digest.Take(identity_ + " " + session_.encoding + " " + job_.inputs.places[index]);
    digest.Take(job_.stage);
    if (job_.byNumber) digest.Take(std::to_string(index));
    const std::vector<std::string> own = {job_.inputs.files[index].name};
    for (const std::string& name : job_.reads ? job_.reads(index) : own) {
      if (name == "-") return "";
      digest.Take(name);
      const std::vector<char> bytes = session_.Read(name);
      digest.Take(bytes.data(), bytes.size());
    }
    return digest.Text();
  }

  Session& session_;
  const Job& job_;
  const FileWork& work_;
  const std::string identity_;
  const bool keeps_;
  KeptResults kept_;
};

}  // namespace

void AddJobFlags(CLI::App& command, Job& job) {
  AddFolders(command, job.inputs);
  AddWorkOptions(command, job.work);
}

CLI::Option* AddJobInputs(CLI::App& command, Job& job, const std::string& what) {
  CLI::Option* traces = AddInputs(command, job.inputs, what);
  AddWorkOptions(command, job.work);
  return traces;
}

CLI::Option* AddJobOutput(CLI::App& command, Job& job, const std::string& what) {
  CLI::Option* output =
      command.add_option("-o,--output", job.inputs.output, what)->type_name(kFileValue)->check(OutputName());
  AddResume(command, job, output);
  return output;
}

void AddResume(CLI::App& command, Job& job, CLI::Option* output) {
  command
      .add_flag("--resume", job.resume, "Take what an earlier run has left in that folder, and do the rest")
      ->needs(output);
  job.command = &command;
}

int RunJob(Session& session, const Job& job, const FileWork& work,
           const std::function<void(size_t, const FileResult&)>& take) {
  return JobRun(session, job, work).Run(take);
}

int PrintJob(Session& session, const Job& job, const std::string& format, const std::string& heading,
             const FileWork& work) {
  std::string before = format == "csv" ? heading : "";
  return RunJob(session, job, work, [&](size_t, const FileResult& result) {
    if (!result.problem.empty()) return;
    session.Print(before + result.listing);
    before = format == "text" ? "\n" : "";
  });
}

}  // namespace reflyze::cli
