// feedd itself, and beside it a stock nginx with the configuration that docs/feed.md gives: both
// must answer alike.

#include <curl/curl.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>

#include "host/core/spawn.h"
#include "host/core/unique_fd.h"
#include "tests/host/update/temporary_folder.h"
#include "tests/support/wait.h"

namespace kalo::feedd {
namespace {

namespace fs = std::filesystem;
using Headers = std::map<std::string, std::string>;

struct Answer {
  long status = 0;
  std::string body;
  Headers headers;  ///< names in small letters

  [[nodiscard]] std::string Header(const std::string& name) const {
    const auto found = headers.find(name);
    return found != headers.end() ? found->second : "";
  }
};

struct CurlEnd {
  void operator()(CURL* curl) const { curl_easy_cleanup(curl); }
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

std::size_t TakeBody(char* bytes, std::size_t size, std::size_t count, void* target) {
  static_cast<std::string*>(target)->append(bytes, size * count);
  return size * count;
}

std::size_t TakeHeader(char* bytes, std::size_t size, std::size_t count, void* target) {
  const std::string line(bytes, size * count);
  const std::size_t colon = line.find(": ");
  if (colon == std::string::npos) return line.size();
  std::string name = line.substr(0, colon);
  for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  (*static_cast<Headers*>(target))[name] =
      line.substr(colon + 2, line.find_first_of("\r\n") - colon - 2);
  return line.size();
}

struct Ask {
  std::string path;
  std::string method = "GET";
  std::vector<std::string> headers = {};
};

Answer Get(const std::string& base, const Ask& ask) {
  const std::unique_ptr<CURL, CurlEnd> curl(curl_easy_init());
  std::unique_ptr<curl_slist, CurlEnd> headers;
  for (const std::string& header : ask.headers) {
    headers.reset(curl_slist_append(headers.release(), header.c_str()));
  }
  Answer answer;
  curl_easy_setopt(curl.get(), CURLOPT_URL, (base + ask.path).c_str());
  curl_easy_setopt(curl.get(), CURLOPT_PATH_AS_IS, 1L);
  curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headers.get());
  if (ask.method == "HEAD") {
    curl_easy_setopt(curl.get(), CURLOPT_NOBODY, 1L);
  } else {
    curl_easy_setopt(curl.get(), CURLOPT_CUSTOMREQUEST, ask.method.c_str());
  }
  curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT, 20L);
  curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, &TakeBody);
  curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &answer.body);
  curl_easy_setopt(curl.get(), CURLOPT_HEADERFUNCTION, &TakeHeader);
  curl_easy_setopt(curl.get(), CURLOPT_HEADERDATA, &answer.headers);
  if (curl_easy_perform(curl.get()) == CURLE_OK) {
    curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &answer.status);
  }
  return answer;
}

constexpr const char* kFeedd = "http://127.0.0.1:8080";
constexpr const char* kNginx = "http://127.0.0.1:80";

class Serving : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    Put("v1/kalo_m1/list.json", R"({"format":1})");
    Put("v1/kalo_m1/list.json.sig", std::string(64, '\x01'));
    Put("v2/kalo_m1/76000/4.json", "beta");
    Put("v2/kalo_m1/76000/4.stable.json", "stable");
    Put("v2/empty.json", "empty");
    std::string patch;
    while (patch.size() < 300000) patch += std::to_string(patch.size()) + " ";
    Put("patches/kalo_m1/76010.patch", patch);
    Put(".publish.lock", "");
    std::ofstream("/tmp/outside") << "secret";
    fs::remove("/srv/feed/patches/link.patch");
    fs::create_symlink("/tmp/outside", "/srv/feed/patches/link.patch");
    fs::remove("/srv/feed/patches/folder");
    fs::create_directory_symlink("/srv/feed/patches/kalo_m1", "/srv/feed/patches/folder");
    feedd_ = Start({FEEDD, "--root", "/srv/feed", "--listen", "127.0.0.1:8080"});
    EXPECT_TRUE(test::WaitFor([] { return Get(kFeedd, {"/v2/empty.json"}).status == 200; }));
  }
  static void TearDownTestSuite() { EXPECT_EQ(End(feedd_), 0); }

  static void Put(const fs::path& name, const std::string& contents) {
    const fs::path path = "/srv/feed" / name;
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << contents;
  }
  static pid_t Start(const std::vector<std::string>& argv) { return Spawn(argv); }
  static int End(pid_t pid) {
    if (pid <= 0) return -1;  // would mean every process
    kill(pid, SIGTERM);
    return WaitForExit(pid);
  }

  static inline pid_t feedd_ = -1;
};

TEST_F(Serving, GivesFilesWithTypeAndTag) {
  const Answer list = Get(kFeedd, {"/v1/kalo_m1/list.json"});
  EXPECT_EQ(list.status, 200);
  EXPECT_EQ(list.body, R"({"format":1})");
  EXPECT_EQ(list.Header("content-type"), "application/json");
  EXPECT_FALSE(list.Header("etag").empty());
  EXPECT_FALSE(list.Header("last-modified").empty());
  EXPECT_EQ(Get(kFeedd, {"/v1/kalo_m1/list.json.sig"}).Header("content-type"),
            "application/octet-stream");
}

TEST_F(Serving, TheEndpointFallsBackToTheEmptyDocument) {
  const std::string endpoint = "/autoupdate/v2/getList?unique=kalo_m1&group_id=4&build_num=";
  EXPECT_EQ(Get(kFeedd, {endpoint + "76000&include_beta=true"}).body, "beta");
  EXPECT_EQ(Get(kFeedd, {endpoint + "76000&include_beta=false"}).body, "stable");
  EXPECT_EQ(Get(kFeedd, {endpoint + "76001&include_beta=true"}).body, "empty");
  EXPECT_EQ(Get(kFeedd, {"/autoupdate/v2/getList"}).body, "empty");
}

TEST_F(Serving, GivesARestOfTheSameContentsOnly) {
  const Answer whole = Get(kFeedd, {"/patches/kalo_m1/76010.patch"});
  const Answer rest = Get(kFeedd, {"/patches/kalo_m1/76010.patch",
                                   "GET",
                                   {"Range: bytes=1000-", "If-Range: " + whole.Header("etag")}});
  EXPECT_EQ(rest.status, 206);
  EXPECT_EQ(rest.body, whole.body.substr(1000));
  const Answer stale = Get(
      kFeedd, {"/patches/kalo_m1/76010.patch", "GET", {"Range: bytes=1000-", "If-Range: \"old\""}});
  EXPECT_EQ(stale.status, 200);
  EXPECT_EQ(stale.body, whole.body);
}

TEST_F(Serving, ASlowLineGivesTheSameInItsTime) {
  const std::string slow = "http://127.0.0.1:8081";
  const pid_t feedd =
      Start({FEEDD, "--root", "/srv/feed", "--listen", "127.0.0.1:8081", "--rate", "200"});
  EXPECT_TRUE(test::WaitFor([&] { return Get(slow, {"/v2/empty.json"}).status == 200; }));
  const auto begin = std::chrono::steady_clock::now();
  const Answer whole = Get(slow, {"/patches/kalo_m1/76010.patch"});
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
  EXPECT_EQ(whole.body, Get(kFeedd, {"/patches/kalo_m1/76010.patch"}).body);
  const Answer rest = Get(slow, {"/patches/kalo_m1/76010.patch", "GET", {"Range: bytes=299990-"}});
  EXPECT_EQ(rest.status, 206);
  EXPECT_EQ(rest.body, whole.body.substr(299990));
  EXPECT_EQ(End(feedd), 0);
}

TEST_F(Serving, FollowsNoLink) {
  EXPECT_EQ(Get(kFeedd, {"/patches/link.patch"}).status, 404);
  EXPECT_EQ(Get(kFeedd, {"/patches/folder/76010.patch"}).status, 404);
}

TEST_F(Serving, SaysWhatIsWrongWithItsArguments) {
  EXPECT_EQ(WaitForExit(Start({FEEDD, "--root", "/srv/feed"})), 2);
  EXPECT_EQ(WaitForExit(Start({FEEDD, "--root", "/srv/feed", "--listen", "127.0.0.1"})), 2);
  EXPECT_EQ(WaitForExit(Start({FEEDD, "--root", "/srv/none", "--listen", "127.0.0.1:0"})), 1);
  EXPECT_EQ(WaitForExit(Start({FEEDD, "--root", "/srv/feed", "--listen", "127.0.0.1:8080"})), 1)
      << "the port is taken";
}

// nginx with the configuration as it is shipped, which serves /srv/feed on port 80.
class BesideNginx : public Serving {
 protected:
  static void SetUpTestSuite() {
    Serving::SetUpTestSuite();
    ASSERT_TRUE(fs::exists(NGINX)) << "run packaging/unpack-nginx build/dev/nginx";
    std::ofstream("/tmp/nginx.conf")
        << "user root;\ndaemon off;\npid /tmp/nginx.pid;\nerror_log /tmp/nginx.log;\n"
           "events {}\nhttp {\naccess_log off;\nclient_body_temp_path /tmp/n1;\n"
           "proxy_temp_path /tmp/n2;\nfastcgi_temp_path /tmp/n3;\nuwsgi_temp_path /tmp/n4;\n"
           "scgi_temp_path /tmp/n5;\ninclude " FEED_CONF ";\n}\n";
    nginx_ = Start({NGINX, "-e", "/tmp/nginx.log", "-c", "/tmp/nginx.conf"});
    ASSERT_TRUE(test::WaitFor([] { return Get(kNginx, {"/v2/empty.json"}).status == 200; }))
        << test::Contents("/tmp/nginx.log");
  }
  static void TearDownTestSuite() {
    EXPECT_EQ(End(nginx_), 0);
    Serving::TearDownTestSuite();
  }

  static void ExpectAlike(const Ask& ask) {
    const Answer ours = Get(kFeedd, ask);
    const Answer theirs = Get(kNginx, ask);
    const std::string what = ask.method + " " + ask.path;
    EXPECT_EQ(ours.status, theirs.status) << what;
    for (const char* name : {"etag", "last-modified", "content-range", "allow"}) {
      if (ours.status == 416 && std::string(name) != "content-range") continue;
      EXPECT_EQ(ours.Header(name), theirs.Header(name)) << what << ": " << name;
    }
    if (ours.status >= 300) return;  // the words of a refusal are a server's own
    EXPECT_TRUE(ours.body == theirs.body) << what;
    EXPECT_EQ(ours.Header("content-type"), theirs.Header("content-type")) << what;
    EXPECT_EQ(ours.Header("content-length"), theirs.Header("content-length")) << what;
  }

  static inline pid_t nginx_ = -1;
};

TEST_F(BesideNginx, FilesAreAnsweredAlike) {
  for (const char* path :
       {"/v1/kalo_m1/list.json", "/v1/kalo_m1/list.json.sig", "/v2/kalo_m1/76000/4.json",
        "/v2/kalo_m1/76000/4.stable.json", "/v2/empty.json", "/patches/kalo_m1/76010.patch"}) {
    for (const char* method : {"GET", "HEAD"}) ExpectAlike({path, method});
    const std::string tag = Get(kFeedd, {path}).Header("etag");
    ExpectAlike({path, "GET", {"If-None-Match: " + tag}});
    ExpectAlike({path, "GET", {"If-None-Match: \"other\""}});
    for (const char* range : {"bytes=0-0", "bytes=2-3", "bytes=2-", "bytes=-2", "bytes=0-999999",
                              "bytes=999999-", "bytes=0-0,2-2", "bytes=x", "lines=1-2"}) {
      const std::string header = std::string("Range: ") + range;
      ExpectAlike({path, "GET", {header}});
      ExpectAlike({path, "GET", {header, "If-Range: " + tag}});
      ExpectAlike({path, "GET", {header, "If-Range: \"stale\""}});
    }
  }
}

TEST_F(BesideNginx, QueriesAreAnsweredAlike) {
  const std::string endpoint = "/autoupdate/v2/getList";
  for (const char* query :
       {"", "?", "?unique=kalo_m1", "?unique=kalo_m1&build_num=76000&include_beta=true&group_id=4",
        "?unique=kalo_m1&build_num=76000&include_beta=false&group_id=4",
        "?unique=kalo_m1&build_num=76000&group_id=4",
        "?unique=kalo_m1&build_num=76000&include_beta=true&group_id=5",
        "?unique=kalo_m1&build_num=76001&include_beta=true&group_id=4",
        "?unique=kalo_m9&build_num=76000&include_beta=true&group_id=4",
        "?unique=kalo_m1&build_num=076000&include_beta=true&group_id=4",
        "?unique=kalo_m1&build_num=-1&include_beta=true&group_id=4",
        "?unique=kalo_m1&build_num=99999999999&include_beta=true&group_id=4",
        "?unique=kalo_m1&build_num=76000&include_beta=true&group_id=44",
        "?unique=../kalo_m1&build_num=76000&include_beta=true&group_id=4",
        "?unique=kalo_m1/76000&build_num=76000&include_beta=true&group_id=4",
        "?unique=.publish.lock&build_num=76000&include_beta=true&group_id=4"}) {
    ExpectAlike({endpoint + query});
  }
}

TEST_F(BesideNginx, WhatIsNotThereIsAnsweredAlike) {
  for (const char* path :
       {"/", "/v1", "/v1/", "/v1/kalo_m1", "/v1/kalo_m1/", "/v1/none", "/none", "/.publish.lock",
        "/v1/.hidden", "/v1/../v2/../../etc/passwd", "/v1/%2e%2e/%2e%2e/etc/passwd", "/v1//x",
        "/patches/../.publish.lock", "/v1/a%00b"}) {
    const Ask ask{path};
    const long status = Get(kFeedd, ask).status;
    const long theirs = Get(kNginx, ask).status;
    // A server may call a path malformed that the other one finds nothing at.
    EXPECT_TRUE(status == 404 || status == 400) << path << ": " << status;
    EXPECT_TRUE(theirs == 404 || theirs == 400) << path << ": " << theirs;
  }
  for (const char* method : {"POST", "PUT", "DELETE", "PATCH"}) {
    ExpectAlike({"/v1/kalo_m1/list.json", method});
    ExpectAlike({"/autoupdate/v2/getList", method});
    ExpectAlike({"/none", method});
  }
}

}  // namespace
}  // namespace kalo::feedd
