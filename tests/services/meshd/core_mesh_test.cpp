// The module as the server uses it: loaded from its file, called through its table.

#include <gtest/gtest.h>

#include "host/core/file_io.h"
#include "host/webapi/api_registry.h"
#include "host/webapi/module_description.h"
#include "host/webapi/module_loader.h"
#include "tests/host/mesh/private_bus.h"

namespace kalo {
namespace {

constexpr const char* kApi = "KALO.Core.Mesh";
constexpr int kBadParameter = 403;
constexpr int kGeneralFailure = 117;

// On a bus on which nobody answers for the mesh.
class CoreMesh : public testing::Test {
 protected:
  CoreMesh() { registry_.Add(webapi::LoadModule(KALO_MODULE), KALO_MODULE); }

  [[nodiscard]] KALO::APIResponse Call(const char* method, const Json::Value& parameters) const {
    KALO::APIRequest request(parameters);
    KALO::APIResponse response;
    registry_.Find(kApi, 1, method)(&request, &response);
    return response;
  }

  PrivateBus bus_;
  webapi::ApiRegistry registry_;
};

TEST_F(CoreMesh, IsDescribedRowByRowForAdministratorsAlone) {
  const std::string text = ReadFile(KALO_DESCRIPTION, 1 << 16).value_or("");
  const webapi::ModuleDescription module = webapi::ParseModuleDescription(text, KALO_DESCRIPTION);
  ASSERT_EQ(module.rows.size(), webapi::LoadModule(KALO_MODULE).size());
  for (const webapi::RowDescription& row : module.rows) {
    EXPECT_NE(registry_.Find(row.api, row.version, row.method), nullptr) << row.method;
    EXPECT_EQ(row.allow, std::vector{webapi::AllowedCaller::kAdministrators}) << row.method;
  }
}

// An empty list would say that there is nothing new for any node.
TEST_F(CoreMesh, TellsNoReleasesWithoutTheMeshService) {
  Json::Value parameters(Json::objectValue);
  parameters["version"] = "VXM 1.4.0-76010";
  EXPECT_EQ(Call("releases", parameters).ErrorCode(), kGeneralFailure);
}

TEST_F(CoreMesh, ReleasesAreThoseOfAVersion) {
  EXPECT_EQ(Call("releases", Json::objectValue).ErrorCode(), kBadParameter);
  Json::Value parameters(Json::objectValue);
  parameters["version"] = 76010;
  EXPECT_EQ(Call("releases", parameters).ErrorCode(), kBadParameter);
}

}  // namespace
}  // namespace kalo
