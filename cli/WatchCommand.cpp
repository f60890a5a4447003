// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstring>
#include <memory>

#include "cli/Commands.h"
#include "cli/LoadBeside.h"
#include "cli/Options.h"
#include "cli/Session.h"
#include "cli/WatchHost.h"

namespace reflyze::cli {
namespace {

constexpr std::size_t kLargestPassword = 4096;  // bytes

struct WatchCommand {
  CentreOptions centre;
  unsigned long long port = 8717;
  bool noHttp = false;
  bool check = false;
  std::string user;
  std::string role = "reader";
};

// The password of a user comes on standard input, where no list of processes shows it.
int SetUser(Session& session, const WatchCommand& options) {
  const std::vector<char> bytes = session.Read("-", kLargestPassword);
  std::string password(bytes.begin(), bytes.end());
  while (!password.empty() && (password.back() == '\n' || password.back() == '\r')) password.pop_back();
  LoadedWatch().setUser(options.centre.store, {options.user, password, options.role});
  return kDone;
}

int Check(Session& session, const WatchCommand& options) {
  const std::vector<std::string> wrong = LoadedWatch().check(options.centre);
  for (const std::string& sentence : wrong) session.Warn(sentence);
  if (wrong.empty()) session.Print("all is well\n");
  return wrong.empty() ? kDone : kUnreadable;
}

// Signals end a centre in order: what was begun is finished.
void WaitForSignal(const sigset_t& ends) {
  int signal = 0;
  while (sigwait(&ends, &signal) != 0) {
  }
}

int RunWatch(Session& session, WatchCommand& options) {
  if (options.port > kLastPort) throw Error(ErrorKind::kUsage, "", "--port: there are ports from 1 to 65535");
  if (options.centre.page.empty()) options.centre.page = FolderOfPage();
  options.centre.port = options.noHttp ? -1 : static_cast<int>(options.port);
  if (!options.user.empty()) return SetUser(session, options);
  if (options.check) return Check(session, options);
  const WatchDoor& watch = LoadedWatch();
  // Before the first thread, so that all of them leave these signals to this one.
  sigset_t ends;
  sigemptyset(&ends);
  sigaddset(&ends, SIGINT);
  sigaddset(&ends, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &ends, nullptr);
  const std::unique_ptr<Centre> centre = watch.open(options.centre);
  centre->Start();
  if (centre->Port() > 0) {
    const std::string scheme = options.centre.certificate.empty() ? "http" : "https";
    session.Print(scheme + "://" + options.centre.listen + ":" + std::to_string(centre->Port()) + "/\n");
  } else {
    session.Print("watching\n");
  }
  WaitForSignal(ends);
  centre->Stop();
  return kDone;
}

void AddPlaces(CLI::App& command, WatchCommand& options) {
  CentreOptions& centre = options.centre;
  command
      .add_option("--store", centre.store,
                  "Where all is kept: a file, or postgresql://... that several centres share")
      ->type_name("STORE")
      ->capture_default_str();
  command.add_option("--spool", centre.spool, "Folder to take traces from: SPOOL/FIBRE/NAME")
      ->type_name("FOLDER");
  command.add_flag("--learn", centre.learn,
                   "Add fibres that are not known; their first trace is their baseline");
  command.add_option("--channels", centre.channels, "Document (INI) of whom to tell of alarms")
      ->type_name(kFileValue)
      ->check(InputName());
  command.add_option("--address", centre.address, "Where people find the page, for messages to lead there")
      ->type_name("URL");
  command.add_option("-j,--jobs", centre.jobs, "Comparisons at a time; 0 for one a core")
      ->type_name("N")
      ->capture_default_str();
  command
      .add_option("--keep", centre.keepDays,
                  "Days after which traces without a change lose their bytes, but for one a day; 0 for never")
      ->type_name("DAYS")
      ->check(WholeNumber())
      ->capture_default_str();
  command.add_option("--name", centre.name, "Of this centre among those that share a store")
      ->type_name("NAME");
}

void AddDoors(CLI::App& command, WatchCommand& options) {
  CentreOptions& centre = options.centre;
  command
      .add_option("--listen", centre.listen, "Address to answer HTTP on; beyond this machine it needs users")
      ->type_name("ADDRESS")
      ->capture_default_str();
  command.add_option("--port", options.port, "Port; 0 for any that is free")
      ->type_name("PORT")
      ->check(WholeNumber())
      ->capture_default_str();
  command.add_flag("--no-http", options.noHttp, "Answer no HTTP");
  command.add_option("--certificate", centre.certificate, "PEM file, for TLS")->type_name(kFileValue);
  command.add_option("--key", centre.key, "PEM file of its key")->type_name(kFileValue);
  command
      .add_option("--trusted-header", centre.trustedHeader,
                  "Header in which a proxy in front names the user; the proxy has to remove it from others")
      ->type_name("NAME");
  command
      .add_option("--tiles", centre.tiles,
                  "Pictures behind the map: address of a tile server, with {z}, {x} and {y}")
      ->type_name("URL");
  command.add_option("--tiles-credit", centre.tilesCredit, "Whom the page names below the map")
      ->type_name("TEXT");
  command.add_option("--page", centre.page, "Folder of the built page, if not that of the installation")
      ->type_name("FOLDER");
}

}  // namespace

void AddWatchCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<WatchCommand>();
  CLI::App* command =
      app.add_subcommand("watch", "Watch a network: take traces as they come, and tell of changes");
  AddPlaces(*command, *options);
  AddDoors(*command, *options);
  command->add_flag("--check", options->check, "Look whether all is well with these options, and end");
  command
      ->add_option("--set-user", options->user,
                   "Add or change a user, with the password on standard input, and end")
      ->type_name("NAME");
  command->add_option("--role", options->role, "Of that user: reader, operator or administrator")
      ->check(CLI::IsMember({"reader", "operator", "administrator"}))
      ->capture_default_str();
  command->callback([options, &session] {
    session.command = [options](Session& running) { return RunWatch(running, *options); };
  });
}

}  // namespace reflyze::cli
