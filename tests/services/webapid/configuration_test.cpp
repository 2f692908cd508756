#include "services/webapid/configuration.h"

#include <gtest/gtest.h>

#include "host/core/object_reader.h"

namespace kalo::webapid {
namespace {

Configuration Parse(const std::string& more) {
  return ParseConfiguration(R"({"address":"127.0.0.1","admin_port":443,"mesh_port":8443)" + more,
                            "c");
}

std::string ErrorOf(const std::string& text) {
  try {
    (void)ParseConfiguration(text, "c");
    return "";
  } catch (const FormatError& e) {
    return e.what();
  }
}

TEST(Configuration, HasSensibleDefaults) {
  const Configuration c = Parse("}");
  EXPECT_EQ(c.session_idle.count(), 900);
  EXPECT_EQ(c.session_absolute.count(), 43200);
  EXPECT_EQ(c.admin_workers, 4U);
  EXPECT_EQ(c.mesh_workers, 3U);
  EXPECT_EQ(c.upload_bytes, 512U << 20);
}

TEST(Configuration, TakesWhatItSays) {
  const Configuration c = Parse(
      R"(,"session":{"idle_s":5},"workers":{"mesh":9},"limits":{"upload_mib":2,"request_s":7}})");
  EXPECT_EQ(c.session_idle.count(), 5);
  EXPECT_EQ(c.mesh_workers, 9U);
  EXPECT_EQ(c.upload_bytes, 2U << 20);
  EXPECT_EQ(c.request_time.count(), 7);
}

TEST(Configuration, SaysWhatIsWrong) {
  EXPECT_EQ(ErrorOf("{"), "c: not well-formed JSON");
  EXPECT_EQ(ErrorOf("[]"), "c: not a JSON object");
  EXPECT_EQ(ErrorOf("{}"), "c: \"address\" is missing");
  EXPECT_EQ(ErrorOf(R"({"address":"router"})"),
            "c: \"address\" must be a numeric IPv4 or IPv6 address");
  EXPECT_EQ(ErrorOf(R"({"address":"::1","admin_port":0})"),
            "c: \"admin_port\" must be a number from 1 to 65535");
  EXPECT_EQ(ErrorOf(R"({"address":"::1","admin_port":1,"mesh_port":1})"),
            "c: \"mesh_port\" equals \"admin_port\"");
  EXPECT_EQ(ErrorOf(R"({"address":"::1","admin_port":1,"mesh_port":2,"x":1})"),
            "c: \"x\" is not known here");
  EXPECT_EQ(ErrorOf(R"({"address":"::1","admin_port":1,"mesh_port":2,"session":{"y":1}})"),
            "c: session: \"y\" is not known here");
  EXPECT_EQ(ErrorOf(R"({"address":"::1","admin_port":1,"mesh_port":2,"host_names":["https://a"]})"),
            "c: \"host_names\" must hold host names only");
}

}  // namespace
}  // namespace kalo::webapid
