#include <gtest/gtest.h>

#include <cerrno>
#include <random>
#include <string>
#include <vector>

#include "platform/core/key_value.h"
#include "tests/host/core/support.h"

namespace kalo::test {
namespace {

constexpr std::size_t kLongestKey = 64;
constexpr std::size_t kLongestValue = 8191;
constexpr std::size_t kLongestFile = 256UL * 1024;
constexpr char kOther[] = "# other\nother=1\n\x01\xff\n";

class KeyValueLimits : public testing::Test {
 protected:
  int Set(const std::string& key, const std::string& value) {
    errno = 0;
    return KLIBCFileSetKeyValue(path_.c_str(), key.c_str(), value.c_str(), 0);
  }
  int Get(const std::string& key) {
    errno = 0;
    return KLIBCFileGetKeyValue(path_.c_str(), key.c_str(), buffer_.data(), buffer_.size(), 0);
  }
  void ExpectRoundTrip(const std::string& value) {
    folder_.Write("file", std::string(kOther) + "key=old\n");
    ASSERT_EQ(Set("key", value), 1);
    ASSERT_EQ(Get("key"), static_cast<int>(value.size()));
    ASSERT_EQ(std::string(buffer_.data()), value);
    ASSERT_TRUE(folder_.Read("file").starts_with(kOther));
  }

  Folder folder_;
  std::string path_ = folder_.Path("file");
  std::vector<char> buffer_ = std::vector<char>(kLongestFile);
};

TEST_F(KeyValueLimits, EveryByteRoundTripsThroughAFile) {
  std::string all;
  for (int byte = 1; byte <= 255; ++byte) {
    all += static_cast<char>(byte);
    ExpectRoundTrip(std::string(1, static_cast<char>(byte)));
  }
  ExpectRoundTrip(all);
}

TEST_F(KeyValueLimits, EveryLengthUpToTheLongestRoundTrips) {
  std::mt19937 random(1);  // NOLINT(cert-msc51-cpp): the same bytes in each run
  std::uniform_int_distribution<int> byte(1, 255);
  for (std::size_t length = 0; length <= kLongestValue; length += length < 70 ? 1 : 101) {
    std::string value(length, '\0');
    for (char& c : value) c = static_cast<char>(byte(random));
    ExpectRoundTrip(value);
  }
  for (const char c : {'a', '\\', '\n', '\xff'}) {
    for (const std::size_t less : {0U, 1U, 2U})
      ExpectRoundTrip(std::string(kLongestValue - less, c));
  }
}

TEST_F(KeyValueLimits, TheLongestValueFitsExactlyItsBuffer) {
  ASSERT_EQ(Set("key", std::string(kLongestValue, 'v')), 1);
  buffer_.resize(kLongestValue + 1);
  EXPECT_EQ(Get("key"), static_cast<int>(kLongestValue));
  buffer_.resize(kLongestValue);
  EXPECT_LT(Get("key"), 0);
  EXPECT_EQ(errno, ERANGE);
}

TEST_F(KeyValueLimits, ALongerValueIsRefusedBySetAndByGet) {
  folder_.Write("file", "key=old\n");
  EXPECT_LT(Set("key", std::string(kLongestValue + 1, 'v')), 0);
  EXPECT_EQ(errno, ERANGE);
  EXPECT_EQ(folder_.Read("file"), "key=old\n");
  folder_.Write("file", "key=" + std::string(kLongestValue + 1, 'v') + "\n");
  EXPECT_LT(Get("key"), 0);
  EXPECT_EQ(errno, ERANGE);
  EXPECT_STREQ(buffer_.data(), "");
}

TEST_F(KeyValueLimits, ALongerKeyIsRefusedEverywhere) {
  const std::string longest(kLongestKey, 'k');
  EXPECT_EQ(Set(longest, "v"), 1);
  EXPECT_EQ(Get(longest), 1);
  const std::string longer = longest + "k";
  folder_.Write("file", longer + "=v\n");
  EXPECT_LT(Set(longer, "w"), 0);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_LT(Get(longer), 0);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(KLIBCFileRemoveKey(path_.c_str(), longer.c_str()), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(KLIBCFileCheckKeyValue(path_.c_str(), longer.c_str(), "v", 0), 0);
  EXPECT_EQ(folder_.Read("file"), longer + "=v\n");
}

TEST_F(KeyValueLimits, AFileMayBeAsLongAsTheLimitAndNoLonger) {
  const std::string line = "key=\"1\"\n";
  const std::string full = std::string(kLongestFile - line.size() - 1, '#') + "\n" + line;
  folder_.Write("file", full);
  EXPECT_EQ(Get("key"), 1);
  EXPECT_EQ(Set("key", "2"), 1);
  EXPECT_LT(Set("key", "12"), 0);
  EXPECT_EQ(errno, EFBIG);
  EXPECT_EQ(Get("key"), 1);
  EXPECT_STREQ(buffer_.data(), "2");
  EXPECT_EQ(folder_.Names(), std::vector<std::string>{"file"});
}

TEST_F(KeyValueLimits, ATooLongFileIsRefusedAndLeftAsItIs) {
  const std::string text = "key=1\n" + std::string(kLongestFile, '#');
  folder_.Write("file", text);
  EXPECT_LT(Get("key"), 0);
  EXPECT_EQ(errno, EFBIG);
  EXPECT_LT(Set("key", "2"), 0);
  EXPECT_EQ(errno, EFBIG);
  EXPECT_EQ(KLIBCFileRemoveKey(path_.c_str(), "key"), -1);
  EXPECT_EQ(errno, EFBIG);
  EXPECT_EQ(folder_.Read("file"), text);
}

}  // namespace
}  // namespace kalo::test
