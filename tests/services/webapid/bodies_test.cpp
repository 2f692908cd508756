#include "tests/services/webapid/server_fixture.h"

namespace kalo::test {
namespace {

class Bodies : public ServerTest {
 protected:
  void SetUp() override {
    ServerTest::SetUp();
    client_ = SignedIn();
  }
  [[nodiscard]] int CodeOf(const std::string& body, const std::string& type) {
    return client_.Post("KALO.Test/1/echo", body, type).Code();
  }

  HttpClient client_ = Admin();
};

constexpr const char* kJson = "application/json";
constexpr const char* kEncoded = "application/x-www-form-urlencoded";

TEST_F(Bodies, JsonValuesArriveAsTheyWere) {
  const Json::Value data =
      Call(client_, "echo", R"({"a":{"x":[1,2.5,null]},"b":-7,"text":"\u00e4\u0000z","flag":true})")
          .Data();
  EXPECT_EQ(data["a"]["x"][1].asDouble(), 2.5);
  EXPECT_EQ(data["b"].asInt(), -7);
  EXPECT_EQ(data["text"].asString(), std::string("\xC3\xA4\0z", 4));
  EXPECT_TRUE(data["flag"].asBool());
}

TEST_F(Bodies, NoBodyIsNoParameters) {
  EXPECT_EQ(client_.Post("KALO.Test/1/echo", "").Data()["a"].asString(), "missing");
}

TEST_F(Bodies, FormFieldsAreTextsOrBooleans) {
  const HttpAnswer encoded =
      client_.Post("KALO.Test/1/echo", "a=1%2B1&b=x+y&flag=true&text=", kEncoded);
  EXPECT_EQ(encoded.Data()["a"].asString(), "1+1");
  EXPECT_EQ(encoded.Data()["b"].asString(), "x y");
  EXPECT_TRUE(encoded.Data()["flag"].asBool());
  const HttpAnswer multipart = client_.PostForm(
      "KALO.Test/1/echo", {{"a", "line\r\n--line", ""}, {"b", "", ""}, {"flag", "false", ""}});
  EXPECT_EQ(multipart.Data()["a"].asString(), "line\r\n--line");
  EXPECT_EQ(multipart.Data()["b"].asString(), "");
  EXPECT_FALSE(multipart.Data()["flag"].asBool());
}

TEST_F(Bodies, AFormsWordsOfABooleanAreOneAndAJsonTextIsNot) {
  const Json::Value encoded =
      client_.Post("KALO.Test/1/echo", "a=true&b=false&flag=True", kEncoded).Data();
  EXPECT_EQ(encoded["a"], Json::Value(true));
  EXPECT_EQ(encoded["b"], Json::Value(false));
  EXPECT_FALSE(encoded["flag"].asBool());
  const Json::Value json = Call(client_, "echo", R"({"a":"true","flag":"true"})").Data();
  EXPECT_EQ(json["a"], Json::Value("true"));
  EXPECT_FALSE(json["flag"].asBool());
}

TEST_F(Bodies, MalformedJsonIsRefused) {
  for (const std::string& body :
       {std::string("{"), std::string("[]"), std::string("7"), std::string("{} x"),
        std::string(R"({"a":1,"a":2})"), std::string("{\"a\":\"\xC0\xAF\"}"),
        R"({"a":)" + std::string(5000, '['), std::string("{\"\":1}")}) {
    EXPECT_EQ(CodeOf(body, kJson), 7001) << body.substr(0, 40);
  }
}

TEST_F(Bodies, OtherContentTypesAreAnswered) {
  EXPECT_EQ(CodeOf("{}", "text/plain"), 7001);
  EXPECT_EQ(CodeOf("{}", "multipart/form-data"), 7001);
  EXPECT_EQ(CodeOf(R"({"a":1})", "Application/JSON; charset=utf-8"), 0);
}

TEST_F(Bodies, ATruncatedMultipartFormIsRefused) {
  const std::string type = "multipart/form-data; boundary=xyz";
  const std::string part = "--xyz\r\nContent-Disposition: form-data; name=\"a\"\r\n\r\nvalue";
  EXPECT_EQ(CodeOf(part + "\r\n--xyz--\r\n", type), 0);
  EXPECT_EQ(CodeOf(part, type), 7001);
  EXPECT_EQ(CodeOf(part + "\r\n--xyz\r\n", type), 7001);
  EXPECT_EQ(CodeOf("--xyz\r\nContent-Disposition: form-data\r\n\r\nvalue\r\n--xyz--\r\n", type),
            7001);
}

TEST_F(Bodies, AFieldMayStandOnceOnly) {
  const HttpAnswer twice = client_.PostForm("KALO.Test/1/echo", {{"a", "1", ""}, {"a", "2", ""}});
  EXPECT_EQ(twice.Code(), 7001);
}

TEST_F(Bodies, TooLargeIsRefusedHoweverItComes) {
  EXPECT_EQ(CodeOf(std::string((1 << 20) + 1, ' '), kJson), 7007);
  EXPECT_EQ(CodeOf("a=" + std::string(1 << 20, 'x'), kEncoded), 7007);
  const HttpAnswer in_a_field =
      client_.PostForm("KALO.Test/1/upload", {{"a", std::string((1 << 20) + 1, 'x'), ""}});
  EXPECT_EQ(in_a_field.Code(), 7007);
  EXPECT_EQ(in_a_field.status, 413);
}

// An early answer must not be lost to a connection that is closed on bytes still coming.
TEST_F(Bodies, ARefusalIsReadHoweverLargeTheRefusedBodyIs) {
  for (const std::size_t size : {std::size_t{1} << 20, std::size_t{4} << 20}) {
    const std::string body(size + 1, ' ');
    for (int i = 0; i < 25; ++i) ASSERT_EQ(CodeOf(body, kJson), 7007) << size << ", " << i;
  }
}

TEST_F(Bodies, LargeRequestsAndAnswersPass) {
  const std::string text(900000, 'x');
  const HttpAnswer answer = Call(client_, "large", R"({"text":")" + text + "\"}");
  EXPECT_EQ(answer.Code(), 0);
  EXPECT_EQ(answer.Data().asString(), text + text);
}

TEST_F(Bodies, TheReservedNameIsRefusedInEveryEncoding) {
  EXPECT_EQ(CodeOf(R"({"x_file_tmp":"/etc/shadow"})", kJson), 7011);
  EXPECT_EQ(CodeOf(R"({"x\u005ffile_tm\u0070":"/etc/shadow"})", kJson), 7011);
  EXPECT_EQ(CodeOf("x_file_tmp=1", kEncoded), 7011);
  EXPECT_EQ(CodeOf("a=1&x%5Ffile%5ftmp=1", kEncoded), 7011);
  EXPECT_EQ(CodeOf("x_file_tmp%00y=1", kEncoded), 7011);
  EXPECT_EQ(client_.PostForm("KALO.Test/1/echo", {{"x_file_tmp", "1", ""}}).Code(), 7011);
  EXPECT_EQ(client_.PostForm("KALO.Test/1/upload", {{"x%5Ffile_tmp", "1", ""}}).Code(), 7011);
  EXPECT_EQ(client_.PostForm("KALO.Test/1/upload", {{"x_file_tmp", "1", "f"}}).Code(), 7011);
}

TEST_F(Bodies, ParametersInTheAddressAreRefused) {
  EXPECT_EQ(client_.Post("KALO.Test/1/echo?x_file_tmp=1").Code(), 7001);
}

}  // namespace
}  // namespace kalo::test
