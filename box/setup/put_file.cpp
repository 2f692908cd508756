#include "box/setup/put_file.h"

#include <cerrno>
#include <system_error>

#include "host/core/file_io.h"

namespace kalo::box {

void PutFile(const std::filesystem::path& path, std::string_view contents, unsigned mode) {
  std::filesystem::create_directories(path.parent_path());
  if (!WriteFileAtomic(path, contents, mode)) {
    throw std::system_error(errno, std::generic_category(), path);
  }
}

}  // namespace kalo::box
