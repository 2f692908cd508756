#include <algorithm>
#include <array>

#include "host/mesh/wire.h"
#include "platform/mesh/client.h"

namespace KALO::MESH::SDK::Client {
namespace {

using kalo::mesh::MeshCode;

struct CodeWords {
  MeshCode code;
  const char* words;
};

constexpr std::array kWords = {
    CodeWords{MeshCode::kOk, "success"},
    CodeWords{MeshCode::kUpdateRunning, "an update is running"},
    CodeWords{MeshCode::kNothingStaged, "no reachable node has a patch staged"},
    CodeWords{MeshCode::kCannotSaveState, "the update's state cannot be saved"},
    CodeWords{MeshCode::kPatchesIncomplete,
              "the last download broke off and nodes still hold its patches; clean them or "
              "download again"},
    CodeWords{MeshCode::kServiceMissing, "the mesh service is not running"},
    CodeWords{MeshCode::kTimedOut, "the mesh service did not answer in time"},
    CodeWords{MeshCode::kErrorReply, "the mesh service answered with an error"},
    CodeWords{MeshCode::kMalformedReply, "the mesh service's answer cannot be read"},
    CodeWords{MeshCode::kConnectionLost, "the connection to the system bus was lost"},
};

}  // namespace

std::string ErrorCodeToNumericalString(std::uint16_t code) {
  return std::to_string(code);
}

std::string ErrorCodeToSemanticString(std::uint16_t code) {
  const auto* row = std::find_if(kWords.begin(), kWords.end(), [code](const CodeWords& candidate) {
    return static_cast<std::uint16_t>(candidate.code) == code;
  });
  return row == kWords.end() ? "unknown error" : row->words;
}

}  // namespace KALO::MESH::SDK::Client
