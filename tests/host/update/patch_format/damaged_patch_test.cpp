// Every single byte of a patch, and every length: each wants a verification of its own, so this is
// a program of its own, which runs beside the others.

#include <gtest/gtest.h>

#include <filesystem>
#include <span>

#include "host/update/patch_format/patch_file.h"
#include "tests/host/update/patch_format/raw_patch.h"
#include "tests/support/tar_header.h"

namespace kalo::patch {
namespace {

using test::GoodPatch;
using test::kTarBlock;

class DamagedPatch : public ::testing::Test {
 protected:
  [[nodiscard]] bool IsValid(const std::string& bytes) {
    return VerifyPatch(folder_.Write("x.patch", bytes), maker_.ring).IsValid();
  }

  [[nodiscard]] bool IsHeader(std::size_t place) const {
    return good_.compare(place / kTarBlock * kTarBlock + 257, 5, "ustar") == 0;
  }

  test::TemporaryFolder folder_;
  test::Maker maker_;
  const std::string good_ = GoodPatch().Bytes(maker_.key);
};

TEST_F(DamagedPatch, AnotherByteAnywhereIsFound) {
  ASSERT_TRUE(IsValid(good_));
  std::string bytes = good_;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<char>(static_cast<unsigned char>(good_[i]) ^ (1U << i % 8));
    ASSERT_FALSE(IsValid(bytes)) << "byte " << i;
    bytes[i] = good_[i];
  }
}

// What a header means for this and for other unpackers may be the same in several spellings.
TEST_F(DamagedPatch, AnotherByteOfAHeaderIsFoundThoughTheChecksumIsRight) {
  for (std::size_t i = 0; i < good_.size(); ++i) {
    if (!IsHeader(i)) continue;
    for (const char other : {'\0', ' ', '0'}) {
      std::string bytes = good_;
      bytes[i] = other;
      test::PutChecksum(std::span(bytes).subspan(i / kTarBlock * kTarBlock, kTarBlock));
      if (bytes == good_) continue;
      ASSERT_FALSE(IsValid(bytes)) << "byte " << i << " as " << static_cast<int>(other);
    }
  }
}

TEST_F(DamagedPatch, AFileThatIsCutOffIsFound) {
  const std::string path = folder_.Write("x.patch", good_);
  for (auto length = std::filesystem::file_size(path); length-- > 0;) {
    std::filesystem::resize_file(path, length);
    ASSERT_FALSE(VerifyPatch(path, maker_.ring).IsValid()) << length;
  }
}

}  // namespace
}  // namespace kalo::patch
