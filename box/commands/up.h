#pragma once

#include <CLI/App.hpp>

namespace kalo::box {

/// Adds "up": makes a mesh in a state folder and runs it.
void AddUp(CLI::App& app, int& status);

}  // namespace kalo::box
