// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <climits>
#include <cstdint>
#include <memory>
#include <random>

#include "cli/Commands.h"
#include "cli/Inputs.h"
#include "cli/LoadBeside.h"
#include "cli/Options.h"
#include "cli/PageServer.h"
#include "cli/Session.h"
#include "reflyze/text.h"

namespace reflyze::cli {
namespace {

struct ViewCommand {
  InputArguments inputs;
  std::uint64_t port = 0;  // any that is free
  bool noBrowser = false;
};

constexpr std::array<std::pair<const char*, const char*>, 5> kPageFiles = {
    {{"index.html", "text/html; charset=utf-8"},
     {"page.js", "text/javascript; charset=utf-8"},
     {"worker.js", "text/javascript; charset=utf-8"},
     {"style.css", "text/css; charset=utf-8"},
     {"engine.wasm", "application/wasm"}}};

std::string TextOfFile(const std::string& name) {
  const std::vector<char> bytes = ReadFile(name);
  return {bytes.begin(), bytes.end()};
}

// A name that nobody can guess: other users of this machine reach the port too.
std::string Token() {
  std::random_device random;  // of the system
  std::string token;
  for (int i = 0; i < 4; ++i) {
    for (std::uint32_t bits = random(), digit = 0; digit < 8; ++digit, bits >>= 4)
      token += "0123456789abcdef"[bits & 15u];
  }
  return token;
}

std::string JsonText(const std::string& text) {
  std::string json = "\"";
  for (const char letter : OneLine(text))
    json += (letter == '"' || letter == '\\' ? "\\" : "") + std::string(1, letter);
  return json + "\"";
}

// The page, and the traces that it is to open on, each read when the browser asks for it. Standard input is
// read at once, since it is there but once.
std::map<std::string, Served> FilesToServe(Session& session, const ViewCommand& options,
                                           const std::string& token) {
  std::map<std::string, Served> files;
  const std::string folder = FolderOfPage();
  if (folder.empty())
    throw Error(
        ErrorKind::kUnreadable, "",
        "the page is neither beside the program nor where it was installed; scripts/build-web builds it");
  for (const auto& [name, type] : kPageFiles) {
    files["/" + std::string(name)] = {type, [path = folder + "/" + name] { return TextOfFile(path); }};
  }
  std::string list;
  for (std::size_t i = 0; i < options.inputs.files.size(); ++i) {
    RequireFile(options.inputs.files, i);
    const InputFile& file = options.inputs.files[i];
    const std::string path = "traces/" + token + "/" + std::to_string(i);
    Served served = {"application/octet-stream", [name = file.name] { return TextOfFile(name); }};
    if (file.name == "-") {
      const std::vector<char> bytes = session.Read(file.name);
      served.read = [text = std::string(bytes.begin(), bytes.end())] { return text; };
    }
    files["/" + path] = std::move(served);
    list += (list.empty() ? "" : ",") + std::string("{\"name\":") +
            JsonText(file.below.empty() ? ShownName(file.name) : file.below) + ",\"path\":\"" + path + "\"}";
  }
  files["/traces/" + token + "/list.json"] = {"application/json", [list] { return "[" + list + "]"; }};
  return files;
}

// Asks the desktop to show the address. Without a desktop there is the printed address.
void OpenBrowser([[maybe_unused]] const std::string& address) {
#ifndef __EMSCRIPTEN__  // where there are no other programs
  posix_spawn_file_actions_t quiet;
  posix_spawn_file_actions_init(&quiet);
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO})
    posix_spawn_file_actions_addopen(&quiet, stream, "/dev/null", O_WRONLY, 0);
  std::string program = "xdg-open", text = address;
  char* arguments[] = {program.data(), text.data(), nullptr};
  pid_t child = 0;
  posix_spawnp(&child, program.c_str(), &quiet, nullptr, arguments, environ);
  posix_spawn_file_actions_destroy(&quiet);
#endif
}

int RunView(Session& session, ViewCommand& options) {
  if (options.port > kLastPort) throw Error(ErrorKind::kUsage, "", "--port: there are ports from 1 to 65535");
  SettleInputs(options.inputs);
  const std::string token = Token();
  PageServer server(FilesToServe(session, options, token));
  std::string address =
      "http://127.0.0.1:" + std::to_string(server.Listen(static_cast<int>(options.port))) + "/";
  if (!options.inputs.files.empty()) address += "?traces=" + token;
  session.Print(address + "\n");
  if (!options.noBrowser) OpenBrowser(address);
  server.Run();
  return kDone;
}

}  // namespace

void AddViewCommand(CLI::App& app, Session& session) {
  auto options = std::make_shared<ViewCommand>();
  CLI::App* command =
      app.add_subcommand("view", "Show traces in the browser, until the program is interrupted");
  AddInputs(*command, options->inputs, "; none opens an empty page")->required(false);
  command
      ->add_option("--port", options->port,
                   "Port of this machine to serve the page on; else any that is free")
      ->type_name("PORT")
      ->check(WholeNumber());
  command->add_flag("--no-browser", options->noBrowser, "Print the address and open no browser");
  command->callback([options, &session] {
    session.command = [options](Session& running) { return RunView(running, *options); };
  });
}

}  // namespace reflyze::cli
