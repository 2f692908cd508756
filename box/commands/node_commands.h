#pragma once

#include <CLI/App.hpp>

namespace kalo::box {

/// Adds "down", "exec" and "event": what is done to a mesh that runs.
void AddDown(CLI::App& app, int& status);
void AddExec(CLI::App& app, int& status);
void AddEvent(CLI::App& app, int& status);

}  // namespace kalo::box
