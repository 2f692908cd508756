#include "box/setup/firmware_tree.h"

#include <sys/random.h>

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <vector>

#include "box/setup/put_file.h"
#include "box/setup/run_program.h"
#include "host/core/folder.h"
#include "host/update/patch_format/description.h"
#include "host/update/patch_format/version_text.h"

namespace kalo::box {
namespace fs = std::filesystem;
namespace {

constexpr std::size_t kBlock = std::size_t{1} << 20;

void Install(const fs::path& build, const char* component, const fs::path& folder) {
  RunProgram({"/usr/bin/cmake", "--install", fs::absolute(build), "--component", component,
              "--prefix", fs::absolute(folder), "--strip"});
}

// Random, so that nothing on the way makes a small file of it.
void WriteRandom(const fs::path& path, std::uint64_t bytes) {
  fs::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary);
  std::vector<char> block(kBlock);
  while (bytes > 0) {
    std::size_t filled = 0;
    while (filled < block.size()) {  // a signal may cut an answer
      const ssize_t got = getrandom(block.data() + filled, block.size() - filled, 0);
      if (got > 0) filled += static_cast<std::size_t>(got);
    }
    const std::uint64_t part = std::min<std::uint64_t>(bytes, block.size());
    file.write(block.data(), static_cast<std::streamsize>(part));
    bytes -= part;
  }
  file.close();
  if (!file) throw std::runtime_error("cannot write " + path.native());
}

}  // namespace

patch::PatchDescription DescribeFirmware(const std::string& unique, const std::string& display) {
  const auto numbers = patch::ParseVersionText(display);
  if (!numbers || !patch::IsDisplayForm(display)) {
    throw std::runtime_error("\"" + display + "\" is no version: \"VXM 1.4.0-76010\" is one");
  }
  return {unique, display, numbers->build, numbers->nano};
}

void PutVersion(const patch::PatchDescription& version, const fs::path& tree) {
  PutFile(tree / "VERSION", patch::WriteDescription(version));
}

void MakeFirmwareTree(const fs::path& build, const patch::PatchDescription& version,
                      std::uint64_t fill_to, const fs::path& folder) {
  if (fs::exists(folder)) throw std::runtime_error(folder.native() + " exists already");
  for (const char* component : {"firmware", "box"}) Install(build, component, folder);
  PutVersion(version, folder);
  const std::uint64_t size = BytesIn(folder);
  if (size < fill_to) WriteRandom(folder / "share/filler.bin", fill_to - size);
}

}  // namespace kalo::box
