#pragma once

#include <filesystem>
#include <span>

#include "platform/webapi/api_table.h"

namespace kalo::webapi {

/// Loads a module and checks its table `gTable` whole before anything of it is called. The number
/// of rows is the symbol's ELF size divided by the row size, or where a null row stands before
/// that: a sanitizer's red zone counts into the size.
///
/// The module stays loaded until the process ends: its rows and functions may be in use anywhere.
/// @param file absolute path
/// @return the rows, which live in the module.
/// @throws ModuleError naming file and cause
[[nodiscard]] std::span<const KALO::APIRow> LoadModule(const std::filesystem::path& file);

}  // namespace kalo::webapi
