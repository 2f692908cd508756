// The maker's list of releases, and what it makes routers do.

#include "host/update/feed/release_list.h"
#include "fuzz/fuzz_target.h"
#include "host/core/object_reader.h"
#include "host/update/feed/offers.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kalo::fuzz;
  using namespace kalo::feed;
  try {
    const ReleaseList list = ParseReleaseList(TextOf(data, size), "input");
    const std::string written = WriteReleaseList(list);
    Require(WriteReleaseList(ParseReleaseList(written, "again")) == written, "it round-trips");
    for (const std::int32_t build : {0, 9346, 76000}) {
      const Release* offer = VersionTwoOffer(list, build, {3000, true});
      Require(offer == nullptr || offer->build > build, "nothing is offered that is not above");
      (void)RegularOffer(list, build, true);
      (void)StopsBefore(list, {build, 0}, {76010, 1});
    }
  } catch (const kalo::FormatError&) {
    return 0;
  }
  return 0;
}
