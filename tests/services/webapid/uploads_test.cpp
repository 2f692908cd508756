#include <curl/curl.h>

#include <algorithm>
#include <cstring>

#include "tests/services/webapid/server_fixture.h"
#include "tests/support/wait.h"

namespace kalo::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* kUploads = "/volume1/@upload";

class Uploads : public ServerTest {
 protected:
  [[nodiscard]] static HttpAnswer Send(HttpClient& client, const std::string& file_name,
                                       const std::string& data = "data") {
    return client.PostForm("KALO.Test/1/upload", {{"one_file", data, file_name}});
  }
};

TEST_F(Uploads, AFileReachesTheModuleAndIsGoneAfterTheAnswer) {
  HttpClient client = SignedIn();
  const HttpAnswer answer = client.PostForm(
      "KALO.Test/1/upload",
      {{"one_file", std::string(3 << 20, 'd'), "patch 1.pat"}, {"note", "behind", ""}});
  const Json::Value data = answer.Data();
  EXPECT_EQ(data["name"].asString(), "patch 1.pat");
  EXPECT_EQ(data["note"].asString(), "behind");
  EXPECT_EQ(data["size"].asInt(), 3 << 20);
  EXPECT_EQ(data["head"].asString(), std::string(16, 'd'));
  EXPECT_EQ(data["mode"].asInt(), 0600);
  EXPECT_EQ(data["folder_mode"].asInt(), 0700);
  EXPECT_TRUE(data["path"].asString().starts_with(std::string(kUploads) + "/"));
  EXPECT_TRUE(fs::is_empty(kUploads));
  EXPECT_EQ(fs::status(kUploads).permissions(), fs::perms::owner_all);
}

TEST_F(Uploads, OnlyTheLastComponentOfTheNameCounts) {
  HttpClient client = SignedIn();
  EXPECT_EQ(Send(client, "../../etc/passwd").Data()["name"].asString(), "passwd");
  EXPECT_EQ(Send(client, "C:\\folder\\p.pat").Data()["name"].asString(), "p.pat");
  EXPECT_EQ(Send(client, "/absolute").Data()["name"].asString(), "absolute");
}

TEST_F(Uploads, AFileMayBeNamedLikeABoolean) {
  HttpClient client = SignedIn();
  EXPECT_EQ(Send(client, "true").Data()["name"], Json::Value("true"));
}

TEST_F(Uploads, NamesWithoutASafePartAreRefused) {
  HttpClient client = SignedIn();
  for (const std::string& name :
       {std::string(".."), std::string("a/.."), std::string("folder/"), std::string("."),
        std::string(256, 'n'), std::string("a\x01z"), std::string("a\xFFz")}) {
    EXPECT_EQ(Send(client, name).Code(), 7001) << name;
  }
  EXPECT_TRUE(fs::is_empty(kUploads));
}

TEST_F(Uploads, OnlyRowsForFilesTakeThem) {
  HttpClient client = SignedIn();
  EXPECT_EQ(client.PostForm("KALO.Test/1/echo", {{"one_file", "x", "f"}}).Code(), 7001);
  EXPECT_EQ(client.PostForm("KALO.Test/1/upload", {{"one", "x", "f"}}).Code(), 7001);
  EXPECT_EQ(
      client.PostForm("KALO.Test/1/upload", {{"a_file", "x", "f"}, {"a_file", "y", "g"}}).Code(),
      7001);
  EXPECT_TRUE(fs::is_empty(kUploads));
}

TEST_F(Uploads, AnEmptyFileIsAFile) {
  HttpClient client = SignedIn();
  const Json::Value data = Send(client, "empty", "").Data();
  EXPECT_EQ(data["name"].asString(), "empty");
  EXPECT_EQ(data["size"].asInt(), 0);
}

TEST_F(Uploads, NothingIsStoredForWhoIsNotSignedIn) {
  HttpClient client = Admin();
  EXPECT_EQ(Send(client, "f").Code(), 7003);
  EXPECT_EQ(Send(client, "f", std::string(200000, 'x')).Code(), 7003);
  EXPECT_TRUE(fs::is_empty(kUploads));
}

TEST_F(Uploads, MoreThanTheLimitIsRefusedBeforeItIsSent) {
  HttpClient client = SignedIn();
  EXPECT_EQ(Stop(), 0);
  Configure(R"(,"limits":{"upload_mib":1})");
  Start();
  EXPECT_EQ(Send(client, "f", std::string(3 << 20, 'x')).Code(), 7007);
  EXPECT_EQ(Send(client, "f", std::string((1 << 20) + 1, 'x')).Code(), 7007);
  EXPECT_TRUE(fs::is_empty(kUploads));
  EXPECT_EQ(Send(client, "f", std::string(1 << 20, 'x')).Code(), 0);
}

TEST_F(Uploads, AnUploadThatCannotBeStoredSaysSo) {
  HttpClient client = SignedIn();
  fs::remove_all(kUploads);
  WriteTestFile(kUploads, "in the way");
  const HttpAnswer answer = Send(client, "f");
  EXPECT_EQ(answer.status, 507);
  EXPECT_EQ(answer.Code(), 7014);
}

TEST_F(Uploads, LeftoversAreSweptAtTheStart) {
  EXPECT_EQ(Stop(), 0);
  WriteTestFile(std::string(kUploads) + "/old/0", "half");
  WriteTestFile(std::string(kUploads) + "/loose", "half");
  Start();
  EXPECT_TRUE(WaitFor([] { return fs::is_empty(kUploads); }));
}

// Sends until the server has begun the file, and then goes away.
struct CutUpload {
  bool begun = false;
  static std::size_t Read(char* buffer, std::size_t one, std::size_t count, void* self) {
    auto& cut = *static_cast<CutUpload*>(self);
    if (cut.begun && WaitFor([] { return !fs::is_empty(kUploads); })) return CURL_READFUNC_ABORT;
    cut.begun = true;
    const std::size_t size = std::min<std::size_t>(one * count, 65536);
    std::memset(buffer, 'x', size);
    return size;
  }
};

TEST_F(Uploads, AHalfUploadIsRemovedWhenTheClientGoesAway) {
  const HttpClient client = SignedIn();
  {
    const std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> handle(curl_easy_init(),
                                                                     &curl_easy_cleanup);
    const std::unique_ptr<curl_mime, decltype(&curl_mime_free)> form(curl_mime_init(handle.get()),
                                                                     &curl_mime_free);
    CutUpload cut;
    curl_mimepart* part = curl_mime_addpart(form.get());
    curl_mime_name(part, "one_file");
    curl_mime_filename(part, "f");
    curl_mime_data_cb(part, 1 << 24, &CutUpload::Read, nullptr, nullptr, &cut);
    curl_slist* headers = curl_slist_append(nullptr, ("X-KALO-Token: " + client.token).c_str());
    const std::string cookie = "kalo_session=" + client.cookie;
    curl_easy_setopt(handle.get(), CURLOPT_URL, "https://127.0.0.1/webapi/KALO.Test/1/upload");
    curl_easy_setopt(handle.get(), CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(handle.get(), CURLOPT_SSL_VERIFYHOST, 0L);
    curl_easy_setopt(handle.get(), CURLOPT_COOKIE, cookie.c_str());
    curl_easy_setopt(handle.get(), CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(handle.get(), CURLOPT_MIMEPOST, form.get());
    EXPECT_EQ(curl_easy_perform(handle.get()), CURLE_ABORTED_BY_CALLBACK);
    curl_slist_free_all(headers);
  }
  EXPECT_TRUE(WaitFor([] { return fs::is_empty(kUploads); }));
}

}  // namespace
}  // namespace kalo::test
