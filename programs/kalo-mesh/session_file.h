#pragma once

#include <string>
#include <string_view>

#include "programs/kalo-mesh/commands.h"

namespace kalo::cli {

/// How a server that is reached through a socket in the file system is named.
inline constexpr std::string_view kUnixServer = "unix:";

/// Where one is signed in, kept between calls of the program in a file that only its owner reads.
struct Session {
  std::string server;   ///< "https://host:port", or "unix:/path" of this router's own socket
  std::string ca_file;  ///< the authority that the server's certificate must come from
  std::string cookie;
  std::string token;
};

/// @return the file that is used when none is named.
[[nodiscard]] std::string DefaultSessionFile();

/// @return the session that the command line names: this router itself with --local, else the one
///         in the session's file.
/// @throws Failure when there is none or it cannot be read.
[[nodiscard]] Session OpenSession(const CommonOptions& common);

/// @throws Failure when there is none or it cannot be read.
[[nodiscard]] Session LoadSession(const std::string& path);

/// @throws Failure
void SaveSession(const std::string& path, const Session& session);

void RemoveSession(const std::string& path);

}  // namespace kalo::cli
