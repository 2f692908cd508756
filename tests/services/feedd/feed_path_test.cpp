#include "services/feedd/feed_path.h"

#include <gtest/gtest.h>

#include <map>

namespace kalo::feedd {
namespace {

std::string Path(const std::string& path, const std::map<std::string, std::string>& query = {}) {
  return FeedPath(path,
                  [&](const char* key) -> std::optional<std::string> {
                    const auto found = query.find(key);
                    return found != query.end() ? std::optional<std::string>(found->second)
                                                : std::nullopt;
                  })
      .value_or("-");
}

std::map<std::string, std::string> Query() {
  return {
      {"unique", "kalo_m1"}, {"build_num", "76000"}, {"include_beta", "true"}, {"group_id", "4"}};
}

TEST(FeedPath, FilesAreNamedAsTheyAre) {
  EXPECT_EQ(Path("/v1/kalo_m1/list.json"), "v1/kalo_m1/list.json");
  EXPECT_EQ(Path("/v1/kalo_m1/list.json.sig"), "v1/kalo_m1/list.json.sig");
  EXPECT_EQ(Path("/patches/kalo_m1/76010.patch"), "patches/kalo_m1/76010.patch");
}

TEST(FeedPath, NothingLeavesTheFeed) {
  for (const char* path :
       {"", "/", "/v1", "/v1/", "/v3/x", "/x", "/v1/../x", "/v1/a/../b", "/v1/.hidden", "/v1//x",
        "/v1/x/", "/v1/a b", "/v1/a\\b", "/v1/%2e%2e/x", "/.publish.lock", "v1/x", "/v1/./x"}) {
    EXPECT_EQ(Path(path), "-") << path;
  }
}

TEST(FeedPath, TheVersionTwoEndpointNamesADocument) {
  EXPECT_EQ(Path("/autoupdate/v2/getList", Query()), "v2/kalo_m1/76000/4.json");
  for (const char* beta : {"false", "True", "1", ""}) {
    auto query = Query();
    query["include_beta"] = beta;
    EXPECT_EQ(Path("/autoupdate/v2/getList", query), "v2/kalo_m1/76000/4.stable.json") << beta;
  }
}

TEST(FeedPath, WhatIsMissingOrMalformedGetsTheEmptyDocument) {
  for (const auto& [key, bad] : std::map<std::string, std::vector<std::string>>{
           {"unique", {"", "../x", "a/b", ".x", std::string(64, 'a')}},
           {"build_num", {"", "x", "-1", "076000", "76000x", "99999999999", " 1", "+1"}},
           {"group_id", {"", "x", "10", "-1"}}}) {
    for (const std::string& value : bad) {
      auto query = Query();
      query[key] = value;
      EXPECT_EQ(Path("/autoupdate/v2/getList", query), kEmptyDocument) << key << "=" << value;
    }
    auto query = Query();
    query.erase(key);
    EXPECT_EQ(Path("/autoupdate/v2/getList", query), kEmptyDocument) << key;
  }
}

}  // namespace
}  // namespace kalo::feedd
