#include "services/meshd/update_store.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <system_error>

#include "tests/support/no_descriptors.h"

namespace kalo::meshd {
namespace {

namespace fs = std::filesystem;

constexpr const char* kFolder = "/var/lib/kalo/store-test";
constexpr const char* kFile = "/var/lib/kalo/store-test/update.json";

UpdateRecord Running() {
  UpdateRecord record;
  record.state = UpdateState::kRunning;
  record.total = 12;
  return record;
}

class UpdateStoreTest : public ::testing::Test {
 protected:
  UpdateStoreTest() { fs::remove_all(kFolder); }
};

TEST_F(UpdateStoreTest, AFreshOneHoldsNoUpdate) {
  EXPECT_EQ(UpdateStore(kFolder).Load().state, UpdateState::kNone);
}

TEST_F(UpdateStoreTest, KeepsWhatWasSaved) {
  ASSERT_TRUE(UpdateStore(kFolder).Save(Running()));
  const UpdateRecord record = UpdateStore(kFolder).Load();
  EXPECT_EQ(record.state, UpdateState::kRunning);
  EXPECT_EQ(record.total, 12);
  EXPECT_EQ(fs::status(kFile).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(UpdateStoreTest, WhatIsDamagedIsNoUpdate) {
  UpdateStore store(kFolder);
  std::ofstream(kFile) << "{\"format\":";
  EXPECT_EQ(store.Load().state, UpdateState::kNone);
  EXPECT_TRUE(store.Save(Running()));
  EXPECT_EQ(store.Load().state, UpdateState::kRunning);
}

TEST_F(UpdateStoreTest, WhatCannotBeReadNowIsNotForgotten) {
  ASSERT_TRUE(UpdateStore(kFolder).Save(Running()));
  UpdateStore store(kFolder);
  {
    const test::NoDescriptors none;
    EXPECT_THROW((void)store.Load(), std::system_error);
  }
  EXPECT_EQ(store.Load().state, UpdateState::kRunning);
}

TEST_F(UpdateStoreTest, TellsWhenItCannotSave) {
  UpdateStore store(kFolder);
  fs::remove_all(kFolder);
  EXPECT_FALSE(store.Save(Running()));
  fs::create_directories(kFolder);
  EXPECT_TRUE(store.Save(Running()));
}

}  // namespace
}  // namespace kalo::meshd
