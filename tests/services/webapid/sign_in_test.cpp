#include <memory>
#include <string>
#include <vector>

#include "tests/services/webapid/server_fixture.h"
#include "tests/support/raw_client.h"
#include "tests/support/wait.h"

namespace kalo::test {
namespace {

class SignIn : public ServerTest {};

TEST_F(SignIn, GivesATokenAndAStrictCookie) {
  HttpClient client = Admin();
  const HttpAnswer answer = client.Login(kAdmin, kPassword);
  EXPECT_EQ(answer.status, 200);
  EXPECT_EQ(client.token.size(), 64U);
  EXPECT_NE(client.token, client.cookie);
  const std::string cookie = answer.headers.at("set-cookie");
  EXPECT_EQ(cookie.substr(cookie.find(';')), "; HttpOnly; Secure; SameSite=Strict; Path=/");
  EXPECT_EQ(Call(client, "echo", R"({"a":1})").Data()["a"].asInt(), 1);
}

TEST_F(SignIn, SecretsAreNotOnDisk) {
  const HttpClient client = SignedIn();
  for (const auto& entry : std::filesystem::directory_iterator("/var/lib/kalo/sessions")) {
    const std::string text = entry.path().filename().string() + ReadTestFile(entry.path());
    EXPECT_EQ(text.find(client.cookie), std::string::npos);
    EXPECT_EQ(text.find(client.token), std::string::npos);
  }
}

TEST_F(SignIn, LogoutEndsTheSession) {
  HttpClient client = SignedIn();
  EXPECT_EQ(client.Post("KALO.Core.Auth/1/logout").Code(), 0);
  const HttpAnswer answer = Call(client, "echo");
  EXPECT_EQ(answer.status, 401);
  EXPECT_EQ(answer.Code(), 7004);
  EXPECT_TRUE(std::filesystem::is_empty("/var/lib/kalo/sessions"));
}

TEST_F(SignIn, WithoutASessionEvenUnknownRowsSaySignIn) {
  HttpClient client = Admin();
  EXPECT_EQ(Call(client, "echo").Code(), 7003);
  EXPECT_EQ(Call(client, "does_not_exist").Code(), 7003);
  EXPECT_EQ(client.Post("KALO.Core.Auth/1/logout").Code(), 7003);
}

TEST_F(SignIn, EveryRequestNeedsTheTokenToo) {
  HttpClient client = SignedIn();
  const std::string token = client.token;
  client.token.clear();
  EXPECT_EQ(Call(client, "echo").Code(), 7005);
  EXPECT_EQ(Call(client, "echo").status, 403);
  client.token = std::string(64, 'a');
  EXPECT_EQ(Call(client, "echo").Code(), 7005);
  EXPECT_EQ(client.Post("KALO.Core.Auth/1/logout").Code(), 7005);
  client.token = token;
  EXPECT_EQ(Call(client, "echo").Code(), 0);
}

TEST_F(SignIn, AWrongPasswordHasToWaitBeforeTheNextTry) {
  HttpClient client = Admin();
  const HttpAnswer wrong = client.Login(kAdmin, "wrong");
  EXPECT_EQ(wrong.status, 401);
  EXPECT_EQ(wrong.Code(), 7012);
  const HttpAnswer early = client.Login(kAdmin, kPassword);
  EXPECT_EQ(early.status, 429);
  EXPECT_EQ(early.Code(), 7013);
  EXPECT_EQ(early.headers.at("retry-after"), "1");
  EXPECT_TRUE(log_.WaitFor("wrong user or password: admin from 127.0.0.1"));
}

TEST_F(SignIn, AnUnknownUserLooksLikeAWrongPassword) {
  HttpClient client = Admin();
  const HttpAnswer unknown = client.Login("nobody\"; drop", kPassword);
  EXPECT_EQ(unknown.Code(), 7012);
  EXPECT_TRUE(log_.WaitFor("wrong user or password: (odd name) from"));
}

TEST_F(SignIn, MalformedTriesAreRefusedWithoutAPasswordCheck) {
  HttpClient client = Admin();
  const std::string row = "KALO.Core.Auth/1/login";
  for (const char* body : {"", "{}", "[]", R"({"user":"admin"})", R"({"user":1,"password":"x"})",
                           R"({"user":"admin","password":"a\u0000b"})",
                           R"({"user":"admin","password":"x","more":1})"}) {
    EXPECT_EQ(client.Post(row, body).Code(), 7001) << body;
  }
  EXPECT_EQ(client.Post(row, std::string(17 << 10, ' ')).Code(), 7007);
  EXPECT_EQ(client.Post(row, std::string(1 << 20, ' ')).Code(), 7007);
  EXPECT_EQ(client.Login(kAdmin, kPassword).Code(), 0);
}

// @return the status of one right sign-in with these headers.
int StatusOfSignIn(const std::string& host, const std::string& more) {
  const std::string body = R"({"user":"admin","password":"correct horse"})";
  RawClient client(443, {});
  (void)client.Send("POST /webapi/KALO.Core.Auth/1/login HTTP/1.1\r\nHost: " + host +
                    "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n" + more + "\r\n" +
                    body);
  return client.Answer(kLongWait, true);
}

constexpr const char* kJson = "Content-Type: application/json\r\n";

TEST_F(SignIn, NeedsItsContentType) {
  EXPECT_EQ(StatusOfSignIn("router.test", ""), 415);
  EXPECT_EQ(StatusOfSignIn("router.test", "Content-Type: text/plain\r\n"), 415);
  EXPECT_EQ(StatusOfSignIn("router.test", "Content-Type: multipart/form-data; boundary=x\r\n"),
            415);
  EXPECT_EQ(StatusOfSignIn("router.test", kJson), 200);
}

TEST_F(SignIn, PagesOfOtherSitesAreRefused) {
  for (const char* header :
       {"Origin: https://evil.test", "Origin: null", "Origin: http://router.test",
        "Origin: https://router.test:444", "Sec-Fetch-Site: cross-site",
        "Sec-Fetch-Site: same-site", "Sec-Fetch-Site: x"}) {
    EXPECT_EQ(StatusOfSignIn("router.test", kJson + std::string(header) + "\r\n"), 403) << header;
  }
  EXPECT_EQ(
      StatusOfSignIn("router.test:443", kJson + std::string("Origin: https://Router.test:443\r\n"
                                                            "Sec-Fetch-Site: same-origin\r\n")),
      200);
  EXPECT_EQ(StatusOfSignIn("127.0.0.1", kJson + std::string("Sec-Fetch-Site: none\r\n")), 200);
}

TEST_F(SignIn, EveryOtherCallOfAnotherSiteIsRefusedToo) {
  HttpClient user = SignedIn();
  user.SetHeader("Origin: https://evil.test");
  EXPECT_EQ(Call(user, "echo").Code(), 7017);
  EXPECT_EQ(user.Post("KALO.Core.Auth/1/logout").Code(), 7017);
  user.SetHeader("Sec-Fetch-Site: cross-site");
  EXPECT_EQ(Call(user, "echo").Code(), 7017);
  HttpClient node = Node(MeshAuthority(), "node0.mesh.internal");
  node.SetHeader("Origin: https://evil.test");
  EXPECT_EQ(Call(node, "node_0").Code(), 7017);
  user.SetHeader("Origin: https://router.test");
  EXPECT_EQ(Call(user, "echo").Code(), 0);
}

TEST_F(SignIn, HostsThatTheRouterDoesNotKnowAreRefused) {
  for (const char* host : {"evil.test", "router.test.evil", "127.0.0.1.evil.test", "[::1", "[x]",
                           "router.test:x", "2130706433", "router.test,evil.test"}) {
    EXPECT_EQ(StatusOfSignIn(host, kJson), 421) << host;
  }
  for (const char* host :
       {"router.test", "ROUTER.test:8080", "10.1.2.3", "[::1]:443", "localhost"}) {
    EXPECT_EQ(StatusOfSignIn(host, kJson), 200) << host;
  }
  HttpClient page = Admin();
  page.SetHeader("Host: evil.test");
  EXPECT_EQ(page.Get("/").Code(), 7016);
  ASSERT_EQ(Stop(), 0);
  Configure(R"(,"host_names":["Router.home"])");
  Start();
  EXPECT_EQ(StatusOfSignIn("router.home", kJson), 200);
}

TEST_F(SignIn, WrongPasswordsFromElsewhereDoNotKeepTheOwnerOut) {
  const std::string body = R"({"user":"admin","password":"wrong"})";
  const std::string wrong =
      "POST /webapi/KALO.Core.Auth/1/login HTTP/1.1\r\nHost: router.test\r\nContent-Length: " +
      std::to_string(body.size()) + "\r\n" + kJson + "\r\n" + body;
  std::vector<std::unique_ptr<RawClient>> others;
  for (int i = 0; i < 20; ++i) {
    for (int n = 0; n < 3; ++n) {
      const std::string address = "127.0.1." + std::to_string(i + 1);
      others.push_back(std::make_unique<RawClient>(443, ClientFiles{}, Origin{address}));
      ASSERT_TRUE(others.back()->Send(wrong));
    }
  }
  HttpClient owner = Admin();
  EXPECT_TRUE(WaitFor([&] { return owner.Login(kAdmin, kPassword).Code() == 0; }));
  for (const auto& other : others) (void)other->Answer(kLongWait, true);
  RawClient last(443, {}, {"127.0.2.1"});
  ASSERT_TRUE(last.Send(wrong));
  EXPECT_EQ(last.Answer(kLongWait, true), 401);
  EXPECT_EQ(owner.Login(kAdmin, kPassword).Code(), 0) << "at once, after a wrong one elsewhere";
  HttpClient guest = Admin();  // has not signed in before
  EXPECT_EQ(guest.Login(kGuest, kPassword).Code(), 0);
}

TEST_F(SignIn, SessionsSurviveARestart) {
  HttpClient client = SignedIn();
  EXPECT_EQ(Stop(), 0);
  Start();
  EXPECT_EQ(Call(client, "echo").Code(), 0);
}

TEST_F(SignIn, AnExpiredSessionIsOverAfterARestartToo) {
  HttpClient client = SignedIn();
  EXPECT_EQ(Stop(), 0);
  for (const auto& entry : std::filesystem::directory_iterator("/var/lib/kalo/sessions")) {
    std::string text = ReadTestFile(entry.path());
    const std::size_t used = text.find("\"used\":") + 7;
    WriteTestFile(entry.path(), text.replace(used, text.find_first_of(",}", used) - used, "1000"));
  }
  Start();
  EXPECT_EQ(Call(client, "echo").Code(), 7004);
}

TEST_F(SignIn, SessionsEndWhenTheUserGoes) {
  HttpClient client = SignedIn();
  WriteTestFile("/etc/kalo/users.json", R"({"users":[]})");
  EXPECT_EQ(Call(client, "echo").Code(), 7004);
}

}  // namespace
}  // namespace kalo::test
