#pragma once

#include <map>
#include <string>

namespace kalo::hostile {

/// Every file that a request might leave or change, by its path: what it is, its rights and, of a
/// regular file, a digest of its content and when that was written. Of sessions only that they are
/// there: those in use are written anew from time to time.
[[nodiscard]] std::map<std::string, std::string> Files();

}  // namespace kalo::hostile
