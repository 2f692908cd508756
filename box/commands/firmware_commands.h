#pragma once

#include <CLI/App.hpp>

namespace kalo::box {

/// Adds "make-firmware": the tree that a node runs as /usr/kalo.
void AddMakeFirmware(CLI::App& app, int& status);
/// Adds "make-patch": such a tree as a signed patch file.
void AddMakePatch(CLI::App& app, int& status);

}  // namespace kalo::box
