#include "programs/kalo-patch/file_hash.h"

#include <cstddef>
#include <fstream>
#include <stdexcept>
#include <vector>

#include "host/update/patch_format/sha256.h"

namespace kalo::patch_tool {

std::string HashOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  patch::Sha256 hash;
  std::vector<char> piece(std::size_t{1} << 18);
  while (file.read(piece.data(), static_cast<std::streamsize>(piece.size())) || file.gcount() > 0) {
    hash.Update({piece.data(), static_cast<std::size_t>(file.gcount())});
  }
  if (!file.eof()) throw std::runtime_error(path.native() + ": cannot be read");
  return hash.Finish();
}

}  // namespace kalo::patch_tool
