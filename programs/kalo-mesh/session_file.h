#pragma once

#include <string>

#include "programs/kalo-mesh/commands.h"

namespace kalo::cli {

/// Where one is signed in, kept between calls of the program in a file that only its owner reads.
struct Session {
  std::string server;   ///< "https://host:port"
  std::string ca_file;  ///< the authority that the server's certificate must come from
  std::string cookie;
  std::string token;
};

/// @return the file that is used when none is named.
[[nodiscard]] std::string DefaultSessionFile();

/// @return the session that the command line names.
/// @throws Failure when there is none or it cannot be read.
[[nodiscard]] Session OpenSession(const CommonOptions& common);

/// @throws Failure when there is none or it cannot be read.
[[nodiscard]] Session LoadSession(const std::string& path);

/// @throws Failure
void SaveSession(const std::string& path, const Session& session);

void RemoveSession(const std::string& path);

}  // namespace kalo::cli
