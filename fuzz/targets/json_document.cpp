// JSON from outside, as every program but the module itself reads it.

#include "fuzz/fuzz_target.h"
#include "host/core/strict_json.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kalo::fuzz;
  const auto document = kalo::ParseStrictJson(TextOf(data, size));
  if (!document) return 0;
  const std::string written = kalo::WriteJson(*document);
  const auto again = kalo::ParseStrictJson(written);
  Require(again.has_value(), "what is written can be read");
  Require(kalo::WriteJson(*again) == written, "and is the same");
  return 0;
}
