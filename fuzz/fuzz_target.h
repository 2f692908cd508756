#pragma once

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <span>
#include <string>

/// What every target in targets/ has in common: each is one function on one input, run by the
/// fuzzer's own loop (fuzz/run) or over the kept inputs (./test).
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace kalo::fuzz {

inline std::string TextOf(const std::uint8_t* data, std::size_t size) {
  const std::span<const std::uint8_t> bytes(data, size);
  return {bytes.begin(), bytes.end()};
}

/// Ends the process when a property does not hold.
inline void Require(bool holds, const char* property) {
  if (holds) return;
  std::cerr << "broken: " << property << "\n";
  std::abort();
}

/// Makes a file of the input.
inline void PutInput(const char* path, const std::string& text) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

/// For targets that read from a file of their own; in memory, which no disk slows down.
inline constexpr const char* kInputFile = "/dev/shm/fuzz-input";

}  // namespace kalo::fuzz
