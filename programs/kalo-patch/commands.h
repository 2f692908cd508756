#pragma once

#include <CLI/CLI.hpp>
#include <stdexcept>
#include <string>

#include "host/update/patch_format/patch_error.h"

/// The subcommands of kalo-patch. Each adds itself to the command line and does its work in its
/// callback, which throws when it cannot: UsageError for what the caller wrote, patch::PatchError
/// or another std::exception for what failed.
namespace kalo::patch_tool {

/// Exit status of the program.
enum ExitStatus { kOk = 0, kFailed = 1, kUsage = 2 };

/// Arguments that do not go together.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Runs a function whose PatchError does not name the file that it is about, and names it.
template <typename Function>
auto NamingFile(const std::string& file, const Function& function) {
  try {
    return function();
  } catch (const patch::PatchError& e) {
    throw patch::PatchError(e.Outcome(), file + ": " + e.what(), e.ErrorNumber());
  }
}

void AddKeygen(CLI::App& app);
void AddMake(CLI::App& app);
void AddSign(CLI::App& app);
void AddVerify(CLI::App& app);
void AddShow(CLI::App& app);
void AddPublish(CLI::App& app);

}  // namespace kalo::patch_tool
