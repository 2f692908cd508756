// bench-fetch UNIQUE VERSION PATH SIZE SHA256 TARGET: fetches one patch of the feed as a download
// does.
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "host/update/download/fetch_patch.h"

int main(int argc, char** argv) {
  if (argc != 7) return 2;
  kalo::feed::Release release;
  release.version = argv[2];
  release.file = {argv[3], std::strtoull(argv[4], nullptr, 10), argv[5]};
  try {
    kalo::download::FetchPatch(argv[1], release, argv[6],
                               {[] { return true; }, [](std::uint64_t) {}});
  } catch (const std::exception& e) {
    std::fprintf(stderr, "bench-fetch: %s\n", e.what());
    return 1;
  }
  return 0;
}
