// kalo-mesh: the command line of a mesh's owner.

#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>

#include "host/core/strict_json.h"
#include "programs/kalo-mesh/commands.h"
#include "programs/kalo-mesh/failure.h"
#include "programs/kalo-mesh/session_file.h"

namespace {

using namespace kalo::cli;

// All that the command line can say.
struct Arguments {
  CommonOptions common;
  LoginOptions login;
  StatusOptions status;
  ProgressOptions progress;
  WatchOptions watch;
  DumpOptions dump;
  CheckOptions check;
  NotificationsOptions notifications;
  DownloadOptions download;
  PrecheckOptions precheck;
  EqualOptions equal;
  UpgradeOptions upgrade;
  StartOptions start;
  std::vector<std::string> patches;
  int (*run)(const Arguments& arguments) = nullptr;
};

CLI::App* AddCommand(CLI::App& app, Arguments& arguments, const char* name, const char* help,
                     int (*run)(const Arguments&)) {
  CLI::App* command = app.add_subcommand(name, help);
  command->add_flag("--json", arguments.common.json, "print the answer as one JSON document");
  command->callback([&arguments, run] { arguments.run = run; });
  return command;
}

void AddLogin(CLI::App& app, Arguments& a) {
  CLI::App* login = AddCommand(app, a, "login", "sign in at the main router",
                               [](const auto& x) { return RunLogin(x.common, x.login); });
  login->add_option("--server", a.login.server, "address, https://host:port")->required();
  login->add_option("--ca", a.login.ca_file, "file with the authority of its certificate")
      ->required();
  login->add_option("--user", a.login.user, "user name")->capture_default_str();
  login->add_option("--password-file", a.login.password_file,
                    "file whose first line is the password; else it is asked for");
  AddCommand(app, a, "logout", "sign out", [](const auto& x) { return RunLogout(x.common); });
}

void AddQueries(CLI::App& app, Arguments& a) {
  CLI::App* status = AddCommand(app, a, "status", "tell which state the mesh's upgrade is in",
                                [](const auto& x) { return RunStatus(x.common, x.status); });
  status->add_flag("--v1", a.status.version1, "ask the first version of the API");
  status->add_flag("--skip-offline", a.status.skip_offline, "pass over offline nodes (--v1)");
  status->add_flag("--skip-re-status", a.status.skip_mesh_state,
                   "pass over the nodes' state and versions");
  CLI::App* progress = AddCommand(app, a, "progress", "tell how far an update or a download is",
                                  [](const auto& x) { return RunProgress(x.common, x.progress); });
  progress->add_flag("--v1", a.progress.version1, "ask the first version of the API");
  progress->add_flag("--download", a.progress.download, "the download's progress");
  AddCommand(app, a, "nodes", "list the mesh's nodes",
             [](const auto& x) { return RunNodes(x.common); });
  CLI::App* notifications =
      AddCommand(app, a, "notifications", "show what administrators are told",
                 [](const auto& x) { return RunNotifications(x.common, x.notifications); });
  notifications->add_option("--dismiss", a.notifications.dismiss, "drop the one with this id")
      ->check(CLI::PositiveNumber);
}

void AddHelp(CLI::App& app, Arguments& a) {
  CLI::App* watch = AddCommand(app, a, "watch", "show the mesh as it changes, until Ctrl-C",
                               [](const auto& x) { return RunWatch(x.common, x.watch); });
  watch->add_option("--count", a.watch.count, "end after so many looks, a second apart")
      ->check(CLI::PositiveNumber);
  AddCommand(app, a, "history", "tell which updates were installed, and what became of each node",
             [](const auto& x) { return RunHistory(x.common); });
  AddCommand(app, a, "doctor", "explain why the status is what it is, and what is odd",
             [](const auto& x) { return RunDoctor(x.common); });
  CLI::App* dump =
      AddCommand(app, a, "dump", "collect what a report of a fault needs; no password, no key",
                 [](const auto& x) { return RunDump(x.common, x.dump); });
  dump->add_option("--out", a.dump.out, "file to write; standard output unless it is named");
}

void AddActions(CLI::App& app, Arguments& a) {
  CLI::App* check = AddCommand(app, a, "check", "look for newer firmware for every node",
                               [](const auto& x) { return RunCheck(x.common, x.check); });
  check->add_flag("--auto", a.check.is_auto, "this is no user's call, but a timer's");
  CLI::App* download =
      AddCommand(app, a, "download", "fetch what the check found and hand it to the nodes",
                 [](const auto& x) { return RunDownload(x.common, x.download); });
  download->add_flag("--promotion", a.download.promotion, "the check said promotion");
  AddCommand(app, a, "cancel", "stop a running download",
             [](const auto& x) { return RunCancel(x.common); });
  AddCommand(app, a, "clean", "drop every patch that the mesh holds",
             [](const auto& x) { return RunClean(x.common); });
  CLI::App* precheck = AddCommand(app, a, "precheck",
                                  "show the licence of the firmware that "
                                  "stands ready, and what stands in its way",
                                  [](const auto& x) { return RunPrecheck(x.common, x.precheck); });
  precheck->add_option("--lang", a.precheck.language, "language: enu, ger, fre");
  precheck->add_flag("--accept-licence", a.precheck.accepts_licence, "agree to the licence");
  CLI::App* upgrade =
      AddCommand(app, a, "upgrade", "check, download, hand out and install, all in one",
                 [](const auto& x) { return RunUpgrade(x.common, x.upgrade); });
  CLI::Option* yes = upgrade->add_flag("--yes", a.upgrade.yes, "do not ask before it installs");
  upgrade->add_flag("--accept-licence", a.upgrade.accepts_licence,
                    "agree to the new firmware's licence");
  upgrade->add_flag("--auto", a.upgrade.is_auto, "this is no user's call, but a timer's (--local)")
      ->excludes(yes);
  CLI::App* upload = AddCommand(app, a, "upload", "hand in one patch file for each model",
                                [](const auto& x) { return RunUpload(x.common, x.patches); });
  upload->add_option("patches", a.patches, "MODEL=FILE, for every model of the mesh")->required();
  CLI::App* start = AddCommand(app, a, "start", "update every node that has a patch",
                               [](const auto& x) { return RunStart(x.common, x.start); });
  start->add_flag("--wait", a.start.wait, "follow it to its end and say what every node runs");
  start
      ->add_option_function<int>(
          "--timeout", [&a](int s) { a.start.deadline = std::chrono::seconds(s); },
          "seconds to wait for the end (300)")
      ->check(CLI::PositiveNumber);
}

void AddEqual(CLI::App& app, Arguments& a) {
  CLI::App* equal = app.add_subcommand("equal", "bring every node to one version");
  equal->require_subcommand(1);
  CLI::App* check = AddCommand(*equal, a, "check", "tell which nodes lag behind",
                               [](const auto& x) { return RunEqualCheck(x.common, x.equal); });
  CLI::App* start = AddCommand(*equal, a, "start", "bring them to the others' version",
                               [](const auto& x) { return RunEqualStart(x.common, x.equal); });
  for (CLI::App* command : {check, start}) {
    command->add_option("--nodes", a.equal.nodes, "ids of the nodes to look at (all)")
        ->delimiter(',')
        ->check(CLI::NonNegativeNumber);
  }
  start
      ->add_option_function<int>(
          "--timeout", [&a](int s) { a.equal.deadline = std::chrono::seconds(s); },
          "seconds to wait for the end of each step (900)")
      ->check(CLI::PositiveNumber);
  AddCommand(*equal, a, "cancel", "stop it, unless the nodes install already",
             [](const auto& x) { return RunEqualCancel(x.common); });
}

int Report(const CommonOptions& common, const Failure& failure) {
  if (common.json) {
    Json::Value root(Json::objectValue);
    root["success"] = false;
    root["message"] = failure.what();
    if (const auto* refusal = dynamic_cast<const Refusal*>(&failure)) {
      root["code"] = refusal->Code();
    }
    std::cerr << kalo::WriteJson(root) << "\n";
  } else {
    std::cerr << "kalo-mesh: " << failure.what() << "\n";
  }
  return failure.Status();
}

int Run(int argc, char** argv, Arguments& arguments) {
  CLI::App app("Upgrades a mesh of routers from the command line.");
  app.footer(
      "Exit status: 0 done, 1 failed, 2 wrong usage, 3 refused by the server, 4 not reachable");
  arguments.common.session_file = DefaultSessionFile();
  app.add_option("--session", arguments.common.session_file, "file that keeps the session")
      ->capture_default_str();
  app.add_option_function<int>(
         "--connect-timeout",
         [&arguments](int s) { arguments.common.connect_deadline = std::chrono::seconds(s); },
         "seconds to go on trying to connect (10)")
      ->check(CLI::NonNegativeNumber);
  app.add_flag("--json", arguments.common.json, "print the answer as one JSON document");
  app.add_flag("--local", arguments.common.local,
               "talk to this router itself, as root, without signing in");
  app.require_subcommand(1);
  app.fallthrough();
  AddLogin(app, arguments);
  AddQueries(app, arguments);
  AddHelp(app, arguments);
  AddActions(app, arguments);
  AddEqual(app, arguments);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? kOk : kUsage;
  }
  if (arguments.common.local && (app.got_subcommand("login") || app.got_subcommand("logout"))) {
    throw Failure(kUsage, "with --local nobody signs in or out");
  }
  return arguments.run(arguments);
}

}  // namespace

int main(int argc, char** argv) {
  Arguments arguments;
  try {
    const int status = Run(argc, argv, arguments);
    // Whoever reads the answer must not take a half of it for the whole.
    if (!std::cout.flush()) throw Failure(kFailed, "the answer cannot be written");
    return status;
  } catch (const Failure& e) {
    return Report(arguments.common, e);
  } catch (const std::exception& e) {
    return Report(arguments.common, Failure(kFailed, e.what()));
  }
}
