// What a node answers: to the main router's library, and to the mesh service.

#include "fuzz/fuzz_target.h"
#include "host/core/strict_json.h"
#include "platform/update/response.h"
#include "services/meshd/json_members.h"
#include "services/meshd/node_report.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kalo::fuzz;
  const auto document = kalo::ParseStrictJson(TextOf(data, size));
  if (!document) return 0;
  const auto response = KALO::MESH::SDK::Response::FromEnvelope(*document);
  Require(response.IsValid() || !response.IsSuccess(), "no success without an envelope");
  Json::Value answer;
  try {
    const auto report = kalo::meshd::ParseNodeReport(response.GetData(answer) ? answer : *document);
    Require(report.install.percent >= 0 && report.install.percent <= 100, "a percentage is one");
    Require(kalo::IsUtf8(report.name) && kalo::IsUtf8(report.version), "texts are fit for the bus");
  } catch (const kalo::meshd::BadJson&) {
    return 0;
  }
  return 0;
}
