#pragma once

#include "programs/kalo-mesh/commands.h"
#include "programs/kalo-mesh/update_watch.h"

namespace kalo::cli {

/// Prints how every node came out of an update, as a table.
void PrintResults(const UpdateWatch& watch);
/// The same for scripts.
void PrintResultsAsJson(const UpdateWatch& watch, bool success);

}  // namespace kalo::cli
