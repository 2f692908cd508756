#include "box/commands/node_commands.h"

#include <CLI/CLI.hpp>
#include <array>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "box/commands/node_control.h"
#include "box/commands/node_events.h"
#include "box/control.h"
#include "box/layout.h"
#include "box/mesh_plan.h"
#include "host/core/file_lock.h"

namespace kalo::box {
namespace fs = std::filesystem;
namespace {

constexpr std::chrono::seconds kDownDeadline{30};
constexpr std::chrono::milliseconds kLook{50};
constexpr int kCannotRun = 125;

struct Options {
  std::string state;
  int node = 0;
  std::string event;
  std::vector<std::string> command;

  [[nodiscard]] Layout Place() const { return Layout(fs::absolute(state)); }
};

// Everything is gone when nobody holds the folder's lock any more.
void Down(const Layout& layout) {
  if (!fs::exists(layout.Lock())) return;
  Json::Value request(Json::objectValue);
  request["op"] = "down";
  static_cast<void>(AskControl(layout.LauncherControl(), request));
  const auto end = std::chrono::steady_clock::now() + kDownDeadline;
  while (!FileLock::TryTake(layout.Lock())) {
    if (std::chrono::steady_clock::now() >= end) throw std::runtime_error("the mesh does not end");
    std::this_thread::sleep_for(kLook);
  }
}

int Report(const std::function<int()>& work, int failure) {
  try {
    return work();
  } catch (const std::exception& e) {
    std::cerr << "kalo-box: " << e.what() << "\n";
    return failure;
  }
}

CLI::App* AddCommand(CLI::App& app, const char* name, const char* help,
                     const std::shared_ptr<Options>& options) {
  CLI::App* command = app.add_subcommand(name, help);
  command->add_option("--state", options->state, "Folder of the mesh")->required();
  return command;
}

}  // namespace

void AddDown(CLI::App& app, int& status) {
  const auto options = std::make_shared<Options>();
  AddCommand(app, "down", "End a mesh and wait until nothing of it runs", options)
      ->callback([options, &status] {
        status = Report(
            [&] {
              Down(options->Place());
              return 0;
            },
            1);
      });
}

void AddExec(CLI::App& app, int& status) {
  const auto options = std::make_shared<Options>();
  CLI::App* exec =
      AddCommand(app, "exec", "Run a command inside a node; \"--\" before it", options);
  exec->add_option("node", options->node)->required()->check(CLI::Range(0, kMaxNodes - 1));
  exec->add_option("command", options->command)->required()->expected(1, -1);
  exec->callback([options, &status] {
    constexpr std::array kStandard = {0, 1, 2};
    status = Report(
        [&] { return ExecInNode(options->Place(), options->node, options->command, kStandard); },
        kCannotRun);
  });
}

void AddEvent(CLI::App& app, int& status) {
  const auto options = std::make_shared<Options>();
  CLI::App* event = AddCommand(app, "event", "Make something happen to a node", options);
  event->add_option("node", options->node)->required()->check(CLI::Range(0, kMaxNodes - 1));
  event->add_option("event", options->event)->required()->check(CLI::IsMember(EventWords()));
  event->callback([options, &status] {
    status = Report(
        [&] {
          MakeEvent(options->Place(), options->node, options->event);
          return 0;
        },
        1);
  });
}

}  // namespace kalo::box
