#include <string>
#include <string_view>
#include <vector>

#include "tests/services/webapid/server_fixture.h"
#include "tests/support/raw_client.h"
#include "tests/support/wait.h"

namespace kalo::test {
namespace {

using std::string_literals::operator""s;

constexpr int kPort = 443;
constexpr int kRefused = 400;
constexpr int kServed = 401;  // no one is signed in

class Heads : public ServerTest {
 protected:
  static std::string Request(const std::string& more) {
    return "POST /webapi/KALO.Test/1/echo HTTP/1.1\r\nHost: router.test\r\n" + more +
           "Content-Length: 2\r\n\r\n{}";
  }
  static int StatusOf(const std::string& bytes) {
    RawClient client(kPort, {});
    EXPECT_TRUE(client.Send(bytes));
    return client.Answer(kLongWait, true);
  }
};

TEST_F(Heads, OddOnesAreRefusedAndEndTheConnection) {
  const std::string rest = "Host: router.test\r\nContent-Length: 2\r\n\r\n{}";
  const std::vector<std::string> heads = {
      // A bare LF, at each place where a line ends.
      "POST /webapi/KALO.Test/1/echo HTTP/1.1\n" + rest,
      Request("X-A: b\n"),
      "POST /webapi/KALO.Test/1/echo HTTP/1.1\r\nHost: router.test\r\nContent-Length: 2\n\r\n{}",
      "POST /webapi/KALO.Test/1/echo HTTP/1.1\r\nHost: router.test\r\nContent-Length: 2\r\n\n{}",
      // Folded lines: the first, one in the middle, and one that is blank.
      "POST /webapi/KALO.Test/1/echo HTTP/1.1\r\n X-A: b\r\n" + rest,
      Request("X-A: b\r\n c\r\n"),
      Request("X-A: b\r\n\tc\r\n"),
      Request("X-A: b\r\n \r\n"),
      // NUL in a target, a name, a value, and where it looks like the end of the head.
      "POST /webapi/KALO.Test/1/echo\0x HTTP/1.1\r\n"s + rest,
      "POST\0 /webapi/KALO.Test/1/echo HTTP/1.1\r\n"s + rest,
      Request("X-\0A: b\r\n"s),
      Request("X-A: b\0c\r\n"s),
      Request("X-A: b\0\r\n"s),
      Request("\0X-A: b\r\n"s),
      Request("\0\r\n"s),
      // Blanks before a colon, names that are none, other control characters.
      Request("X-A : b\r\n"),
      Request("X-A\t: b\r\n"),
      Request(": b\r\n"),
      Request("X A: b\r\n"),
      Request("X-A: b\rc\r\n"),
      Request("X-A: b\x7f\r\n"),
      // A second host, also the same one, also in other letters.
      Request("Host: router.test\r\n"),
      Request("hOST: other.test\r\n"),
      // More than one blank in the first line.
      "POST  /webapi/KALO.Test/1/echo HTTP/1.1\r\n" + rest,
  };
  for (const std::string& head : heads) {
    RawClient client(kPort, {});
    ASSERT_TRUE(client.Send(head));
    const int status = client.Answer(kLongWait, true);
    EXPECT_TRUE(status == kRefused || status == 0) << status << " for " << head;
    EXPECT_EQ(client.Answer(kLongWait, true), 0) << "the connection ends after " << head;
  }
}

TEST_F(Heads, WellFormedOnesAreServed) {
  for (const std::string& more :
       {""s, "X-A:b\r\n"s, "X-A:\r\n"s, "X-A: \t b \t\r\n"s, "X-A: \"a:b\"; c=\xC3\xA4\r\n"s,
        "x!#$%&'*+-.^_`|~9: b\r\n"s, "X-A: 1\r\nX-A: 2\r\n"s, "Cookie: a=b; c=\"d\"\r\n"s,
        "X-Long: " + std::string(9000, 'x') + "\r\n"}) {
    EXPECT_EQ(StatusOf(Request(more)), kServed) << more;
  }
  EXPECT_EQ(StatusOf("POST /webapi/KALO.Test/1/%65cho HTTP/1.1\r\nHost: router.test\r\n"
                     "Content-Length: 2\r\n\r\n{}"),
            kServed);
  EXPECT_EQ(StatusOf("\r\n" + Request("")), kServed) << "an empty line before it is allowed";
}

// The head lies in the library's buffer in one piece, however it came.
TEST_F(Heads, WellFormedOnesAreServedInPiecesAndOneAfterTheOther) {
  RawClient slow(kPort, {});
  for (const char c : Request("X-A: b\r\n")) ASSERT_TRUE(slow.Send(std::string(1, c)));
  EXPECT_EQ(slow.Answer(kLongWait, true), kServed);
  ASSERT_TRUE(slow.Send(Request("X-Long: " + std::string(5000, 'x') + "\r\n") + Request("") +
                        Request("X-A: b\r\n")));
  for (int i = 0; i < 3; ++i) EXPECT_EQ(slow.Answer(kLongWait, true), kServed) << i;
}

TEST_F(Heads, CbcIsNotSpoken) {
  const std::string tls12 = "NONE:+VERS-TLS1.2:+ECDHE-RSA:+ECDHE-ECDSA:+SIGN-ALL:+GROUP-ALL:";
  EXPECT_TRUE(RawClient(kPort, {}, {"127.0.0.1", 0, tls12 + "+AES-128-GCM:+AEAD"}).IsOpen());
  EXPECT_FALSE(
      RawClient(kPort, {}, {"127.0.0.1", 0, tls12 + "+AES-128-CBC:+AES-256-CBC:+SHA1:+SHA256"})
          .IsOpen());
}

TEST_F(Heads, RenegotiationIsRefused) {
  for (const int port : {kPort, 8443}) {
    RawClient client(port, {}, {"127.0.0.1", 0, "NORMAL:-VERS-ALL:+VERS-TLS1.2"});
    ASSERT_TRUE(client.IsOpen());
    EXPECT_FALSE(client.Renegotiate());
    EXPECT_EQ(client.Answer(kLongWait, true), 0) << "the connection is closed";
  }
}

}  // namespace
}  // namespace kalo::test
