#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace kalo::cli {

/// Prints rows under a head, columns aligned, with what came from outside made printable.
void PrintTable(std::ostream& out, const std::vector<std::string>& head,
                const std::vector<std::vector<std::string>>& rows);

}  // namespace kalo::cli
