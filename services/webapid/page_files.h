#pragma once

#include <filesystem>
#include <map>
#include <string>

#include "services/webapid/reply.h"

namespace kalo::webapid {

/// The administration page: a folder of files, read once. They are small, and a router that got new
/// ones has restarted.
class PageFiles {
 public:
  /// Reads every regular file of a known type below the folder; others, hidden ones and links are
  /// passed over. A folder that is not there holds no page.
  explicit PageFiles(const std::filesystem::path& folder);

  /// @param path as it stands in the request, "/" for the page itself
  /// @param known_tag the client's If-None-Match; empty when it sent none
  /// @return the file, "not modified", or the server's error for what is not there
  [[nodiscard]] Reply Get(const std::string& path, const std::string& known_tag) const;

 private:
  struct File {
    std::string body;
    const char* type;
    std::string tag;  ///< changes with the contents
  };
  void Read(const std::filesystem::path& file, const std::string& path);

  std::map<std::string, File> files_;
};

}  // namespace kalo::webapid
