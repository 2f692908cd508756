// The file that names the full patch.

#include "fuzz/fuzz_target.h"
#include "platform/update/update_util.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kalo::fuzz;
  PutInput(kInputFile, TextOf(data, size));
  Json::Value root;
  const bool is_json =
      KALO::MESH::SDK::Upgrade::UpdateUtil::ParseJsonRootFromFile(kInputFile, root);
  Require(is_json != root.isNull(), "a document, or nothing");
  return 0;
}
