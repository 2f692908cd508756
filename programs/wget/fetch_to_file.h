#pragma once

#include <string>

#include "host/update/https_get.h"

namespace kalo::fetch {

/// How the program ends.
enum ExitStatus : int {
  kOk = 0,
  kUsage = 2,
  kCannotWrite = 3,
  kNetwork = 4,    ///< no connection, it broke, or a limit was reached
  kUntrusted = 5,  ///< the server's certificate or the signed list does not hold
  kRefused = 8,    ///< the server answered with another status than 200, or not with a document
};

/// Fetches an address into a new file, which stays empty unless the whole answer came with status
/// 200. Whatever stood at the path (a link or a pipe that somebody planted, too) is removed first.
///
/// A request to the version-2 feed (its query has "unique" and "build_num") is answered by an
/// unsigned document. Of its items only those are written that the model's signed list has for this
/// router, and what is written of them comes from the list.
/// @param limits of the whole call, the signed list included
/// @param error  receives one sentence for people; empty when all went well
[[nodiscard]] ExitStatus FetchToFile(const std::string& url, const std::string& path,
                                     const HttpsLimits& limits, std::string& error);

}  // namespace kalo::fetch
