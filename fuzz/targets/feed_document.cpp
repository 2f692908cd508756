// The version-2 feed's document, which anybody on the way to the feed could have made.

#include "fuzz/fuzz_target.h"
#include "webapi/patch/update_feed_document.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kalo::fuzz;
  const std::string text = TextOf(data, size);
  PutInput(kInputFile, text);
  const auto offer = KALO::MESH::Webapi::ReadFeedDocument(kInputFile);
  if (!offer) return 0;
  Require(text.find("title") != std::string::npos || text.find('\\') != std::string::npos,
          "an offer has a title");
  Require(offer->version.size() <= text.size(), "an offered version stands in the document");
  return 0;
}
