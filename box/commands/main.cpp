// kalo-box: a whole mesh on one machine, in private roots.

#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>

#include "box/commands/firmware_commands.h"
#include "box/commands/node_commands.h"
#include "box/commands/up.h"

namespace {

constexpr int kUsage = 2;

int Run(int argc, char** argv) {
  CLI::App app("A whole mesh on one machine");
  app.require_subcommand(1);
  int status = 0;
  kalo::box::AddUp(app, status);
  kalo::box::AddDown(app, status);
  kalo::box::AddExec(app, status);
  kalo::box::AddEvent(app, status);
  kalo::box::AddMakeFirmware(app, status);
  kalo::box::AddMakePatch(app, status);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : kUsage;
  }
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& e) {
    std::cerr << "kalo-box: " << e.what() << "\n";
    return 1;
  }
}
