// bench-send NODE ADDRESS FILE: hands a patch to a node as the module's library does.
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "host/core/strict_json.h"
#include "host/update/node_client.h"

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  try {
    kalo::NodeClient client;
    const auto answer = client.Upload({std::atoi(argv[1]), argv[2]}, "KALO.Core.Upgrade.Patch", 1,
                                      "upload", Json::Value(Json::objectValue), argv[3]);
    if (answer.IsValid() && answer.IsSuccess()) return 0;
    std::fprintf(stderr, "bench-send: refused\n");
  } catch (const std::exception& e) {
    std::fprintf(stderr, "bench-send: %s\n", e.what());
  }
  return 1;
}
