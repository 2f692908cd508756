// The report that a patch's updater leaves, read into buffers of the sizes that the module has.

#include <array>
#include <cstring>

#include "fuzz/fuzz_target.h"
#include "platform/core/key_value.h"

namespace {

template <std::size_t kSize>
void Read(const char* key) {
  std::array<char, kSize> buffer{};
  buffer.fill('?');
  const int length =
      KLIBCFileGetKeyValue(kalo::fuzz::kInputFile, key, buffer.data(), buffer.size(), 0);
  const std::size_t found = strnlen(buffer.data(), buffer.size());
  kalo::fuzz::Require(found < buffer.size(), "the buffer is terminated");
  kalo::fuzz::Require(length > 0 || found == 0, "it is empty unless there is a value");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kalo::fuzz;
  PutInput(kInputFile, TextOf(data, size));
  Read<1024>("leading_note");
  Read<4096>("reason");
  Read<1>("reason");
  const int yes = KLIBCFileCheckKeyValue(kInputFile, "can_continue", "yes", 1);
  Require(yes == 0 || yes == 1, "yes or no");
  return 0;
}
