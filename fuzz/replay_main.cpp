// Runs a target over the files of folders: what a fuzzer once found stays found.

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <span>
#include <vector>

#include "fuzz/fuzz_target.h"

namespace fs = std::filesystem;

int main(int argc, char** argv) {
  std::vector<fs::path> files;
  for (char* folder : std::span(argv, static_cast<std::size_t>(argc)).subspan(1)) {
    for (const auto& entry : fs::directory_iterator(folder)) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  for (const fs::path& path : files) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    std::cerr << path.filename().native() << "\n";
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  }
  std::cout << files.size() << " inputs\n";
  return files.empty() ? 1 : 0;
}
