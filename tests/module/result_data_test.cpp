#include "tests/fake/module_test.h"

namespace {

class ResultData : public fake::ModuleTest {
 protected:
  // The outputs begin with values that a refusal must leave alone.
  bool Read(const std::string& result) {
    data = "untouched";
    node_id = -7;
    return handler.GetDataFromResult(fake::FromText(result), data, node_id);
  }
  Json::Value data;
  int node_id = 0;
};

TEST_F(ResultData, ReadsDataAndNodeOfASuccess) {
  EXPECT_TRUE(Read(R"({"success": true, "data": {"a": 1}, "node_id": 3})"));
  EXPECT_EQ(fake::ToText(data), R"({"a":1})");
  EXPECT_EQ(node_id, 3);
}

TEST_F(ResultData, ANumberSaysSuccessToo) {
  EXPECT_TRUE(Read(R"({"success": 1, "data": {}, "node_id": 3})"));
  EXPECT_FALSE(Read(R"({"success": 0, "data": {}, "node_id": 3})"));
}

TEST_F(ResultData, RefusesEverythingElseAndLeavesTheOutputsAlone) {
  for (const char* result : {
           R"({"success": true, "data": {}, "node_id": "3"})",
           R"({"success": true, "data": {}, "node_id": 3.5})",
           R"({"success": true, "data": {}, "node_id": 4294967296})",
           R"({"success": true, "data": {}})",
           R"({"success": true, "node_id": 3})",
           R"({"success": false, "data": {}, "node_id": 3})",
           R"({"success": "true", "data": {}, "node_id": 3})",
           R"({"success": null, "data": {}, "node_id": 3})",
           R"({"data": {}, "node_id": 3})",
           R"([])",
           R"([{"success": true, "data": {}, "node_id": 3}])",
       }) {
    EXPECT_FALSE(Read(result)) << result;
    EXPECT_EQ(data, "untouched") << result;
    EXPECT_EQ(node_id, -7) << result;
  }
}

TEST_F(ResultData, ANullDataMemberIsData) {
  EXPECT_TRUE(Read(R"({"success": true, "data": null, "node_id": 0})"));
  EXPECT_TRUE(data.isNull());
}

}  // namespace
