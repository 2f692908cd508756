#include "tests/services/webapid/server_fixture.h"

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
