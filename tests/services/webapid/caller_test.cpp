#include "services/webapid/caller.h"

#include <gtest/gtest.h>

namespace kalo::webapid {
namespace {

using webapi::AllowedCaller;

webapi::RowDescription RowFor(std::vector<AllowedCaller> allow) {
  webapi::RowDescription row;
  row.allow = std::move(allow);
  return row;
}

const Caller kNobody;
const Caller kAdministrator = User{"a", {"users", "administrators"}};
const Caller kUser = User{"administrators", {"users"}};
const Caller kNode0 = MeshNode{0};
const Caller kNode2 = MeshNode{2};

TEST(Caller, ARowThatNamesNobodyIsForbiddenForAll) {
  for (const Caller& caller : {kNobody, kAdministrator, kUser, kNode0, kNode2}) {
    EXPECT_FALSE(IsAllowed(RowFor({}), caller));
  }
}

TEST(Caller, AdministratorsAreThoseOfTheGroup) {
  const auto row = RowFor({AllowedCaller::kAdministrators});
  EXPECT_TRUE(IsAllowed(row, kAdministrator));
  for (const Caller& caller : {kNobody, kUser, kNode0}) EXPECT_FALSE(IsAllowed(row, caller));
}

TEST(Caller, NodesAreToldApartByTheirId) {
  const auto row0 = RowFor({AllowedCaller::kMeshNode0});
  EXPECT_TRUE(IsAllowed(row0, kNode0));
  EXPECT_FALSE(IsAllowed(row0, kNode2));
  EXPECT_FALSE(IsAllowed(row0, kAdministrator));
  const auto row = RowFor({AllowedCaller::kMeshNodes});
  EXPECT_TRUE(IsAllowed(row, kNode2));
  EXPECT_FALSE(IsAllowed(row, kNobody));
}

TEST(Caller, OneOfSeveralIsEnough) {
  const auto row = RowFor({AllowedCaller::kMeshNode0, AllowedCaller::kAdministrators});
  EXPECT_TRUE(IsAllowed(row, kNode0));
  EXPECT_TRUE(IsAllowed(row, kAdministrator));
  EXPECT_FALSE(IsAllowed(row, kNode2));
}

}  // namespace
}  // namespace kalo::webapid
