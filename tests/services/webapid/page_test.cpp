#include <filesystem>

#include "tests/services/webapid/server_fixture.h"

namespace kalo::test {
namespace {

constexpr const char* kPage = "/usr/kalo/web";

class Page : public ServerTest {
 protected:
  void SetUp() override {
    ServerTest::SetUp();
    EXPECT_EQ(Stop(), 0);
    WriteTestFile("/usr/kalo/web/index.html", "<!doctype html><title>Mesh</title>");
    WriteTestFile("/usr/kalo/web/text/de.js", "export default {};");
    WriteTestFile("/usr/kalo/web/.secret.js", "no");
    WriteTestFile("/usr/kalo/web/notes.txt", "no");
    std::filesystem::create_symlink("/etc/kalo/users.json", "/usr/kalo/web/users.js");
    Start();
  }
};

TEST_F(Page, IsServedToAnyoneAndLocked) {
  HttpClient anyone = Admin();
  const HttpAnswer page = anyone.Get("/");
  EXPECT_EQ(page.status, 200);
  EXPECT_EQ(page.body, "<!doctype html><title>Mesh</title>");
  EXPECT_EQ(page.headers.at("content-type"), "text/html; charset=utf-8");
  EXPECT_EQ(page.headers.at("content-security-policy"),
            "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src "
            "'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'; "
            "require-trusted-types-for 'script'; trusted-types 'none'");
  EXPECT_EQ(page.headers.at("x-content-type-options"), "nosniff");
  EXPECT_EQ(page.headers.at("referrer-policy"), "no-referrer");
  EXPECT_EQ(page.headers.at("cross-origin-opener-policy"), "same-origin");
  EXPECT_EQ(page.headers.at("cache-control"), "no-cache");
}

TEST_F(Page, FilesBelowItHaveTheirTypes) {
  HttpClient anyone = Admin();
  const HttpAnswer text = anyone.Get("/text/de.js");
  EXPECT_EQ(text.body, "export default {};");
  EXPECT_EQ(text.headers.at("content-type"), "text/javascript; charset=utf-8");
}

TEST_F(Page, ShowsNothingElse) {
  HttpClient anyone = Admin();
  for (const char* path :
       {"/index.html", "/.secret.js", "/notes.txt", "/users.js", "/text", "/text/",
        "/text/../../../etc/kalo/users.json", "/%2e%2e/VERSION", "//", "/%00", "/text/de.js%00"}) {
    EXPECT_EQ(anyone.Get(path).status, 404) << path;
    EXPECT_EQ(anyone.Get(path).Code(), 7002) << path;
  }
  HttpClient node = Node(MeshAuthority(), "node0.mesh.internal");
  EXPECT_EQ(node.Get("/").status, 404);
  EXPECT_EQ(anyone.Post("../").status, 404);
}

TEST_F(Page, AKnownOneIsNotSentAgain) {
  HttpClient anyone = Admin();
  const HttpAnswer first = anyone.Get("/");
  const std::string tag = first.headers.at("etag");
  anyone.SetHeader("If-None-Match: " + tag);
  const HttpAnswer again = anyone.Get("/");
  EXPECT_EQ(again.status, 304);
  EXPECT_EQ(again.body, "");
  EXPECT_EQ(again.headers.at("etag"), tag);
  EXPECT_EQ(anyone.Get("/text/de.js").status, 200);
}

TEST_F(Page, ARouterWithoutOneStillServes) {
  EXPECT_EQ(Stop(), 0);
  std::filesystem::remove_all(kPage);
  Start();
  EXPECT_EQ(Admin().Get("/").status, 404);
  EXPECT_EQ(SignedIn().Post("KALO.Test/1/echo").Code(), 0);
}

}  // namespace
}  // namespace kalo::test
