// Every single bit of a patch, and every length: each wants a verification of its own, so this is a
// program of its own, which runs beside the others.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "host/core/unique_fd.h"
#include "host/update/patch_format/patch_file.h"
#include "tests/host/update/patch_format/raw_patch.h"

namespace kalo::patch {
namespace {

using test::GoodPatch;

class DamagedPatch : public ::testing::Test {
 protected:
  test::TemporaryFolder folder_;
  test::Maker maker_;
};

TEST_F(DamagedPatch, AFlippedBitAnywhereIsFound) {
  const std::string good = GoodPatch().Bytes(maker_.key);
  const std::string path = folder_.Write("x.patch", good);
  const UniqueFd fd(::open(path.c_str(), O_RDWR | O_CLOEXEC));
  for (std::size_t i = 0; i < good.size(); ++i) {
    for (unsigned bit = 0; bit < 8; ++bit) {
      const auto flipped = static_cast<char>(static_cast<unsigned char>(good[i]) ^ (1U << bit));
      ASSERT_EQ(::pwrite(fd.Get(), &flipped, 1, static_cast<off_t>(i)), 1);
      ASSERT_FALSE(VerifyPatch(path, maker_.ring).IsValid()) << "bit " << bit << " of byte " << i;
    }
    ASSERT_EQ(::pwrite(fd.Get(), &good[i], 1, static_cast<off_t>(i)), 1);
  }
  EXPECT_TRUE(VerifyPatch(path, maker_.ring).IsValid());
}

TEST_F(DamagedPatch, AFileThatIsCutOffIsFound) {
  const std::string path = folder_.Write("x.patch", GoodPatch().Bytes(maker_.key));
  for (auto length = std::filesystem::file_size(path); length-- > 0;) {
    std::filesystem::resize_file(path, length);
    ASSERT_FALSE(VerifyPatch(path, maker_.ring).IsValid()) << length;
  }
}

}  // namespace
}  // namespace kalo::patch
