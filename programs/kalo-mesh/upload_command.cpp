#include <iostream>

#include "host/core/strict_json.h"
#include "programs/kalo-mesh/api_client.h"
#include "programs/kalo-mesh/bars.h"
#include "programs/kalo-mesh/commands.h"
#include "programs/kalo-mesh/failure.h"
#include "programs/kalo-mesh/mesh_view.h"
#include "programs/kalo-mesh/terminal.h"

namespace kalo::cli {
namespace {

std::vector<FilePart> ReadParts(const std::vector<std::string>& patches) {
  std::vector<FilePart> parts;
  for (const std::string& patch : patches) {
    const std::size_t equals = patch.find('=');
    if (equals == 0 || equals == std::string::npos || equals + 1 == patch.size()) {
      throw Failure(kUsage, "\"" + patch + "\" is not of the form MODEL=FILE");
    }
    parts.push_back({patch.substr(0, equals) + "_file", patch.substr(equals + 1)});
  }
  return parts;
}

}  // namespace

int RunUpload(const CommonOptions& common, const std::vector<std::string>& patches) {
  ApiClient client(OpenSession(common), common.connect_deadline);
  BarBoard board(std::cout, IsTerminal());
  SendProgress progress;
  if (!common.json) {
    progress = [&board](std::uint64_t sent, std::uint64_t total) {
      const bool all = sent == total;
      board.Show({{"Upload", static_cast<int>(sent * 100 / total),
                   all ? "sent; the nodes take it" : "sending"}});
    };
  }
  const Json::Value data =
      client.Upload("KALO.Mesh.Upgrade.Patch", 1, "upload", ReadParts(patches), progress);
  if (common.json) {
    std::cout << WriteJson(data) << "\n";
  } else {
    std::cout << Printable(TextOf(data, "version"))
              << " is on every node that needs it. Next: kalo-mesh start --wait\n";
  }
  return kOk;
}

}  // namespace kalo::cli
