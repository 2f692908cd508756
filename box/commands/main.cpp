// kalo-box: a whole mesh on one machine, in private roots.

#include <CLI/CLI.hpp>

#include "box/commands/firmware_commands.h"
#include "box/commands/node_commands.h"
#include "box/commands/up.h"

int main(int argc, char** argv) {
  CLI::App app("A whole mesh on one machine");
  app.require_subcommand(1);
  int status = 0;
  kalo::box::AddUp(app, status);
  kalo::box::AddDown(app, status);
  kalo::box::AddExec(app, status);
  kalo::box::AddEvent(app, status);
  kalo::box::AddMakeFirmware(app, status);
  kalo::box::AddMakePatch(app, status);
  constexpr int kUsage = 2;
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? 0 : kUsage;
  }
  return status;
}
