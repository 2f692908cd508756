#include "webapi/api_table.h"

#include <array>
#include <string_view>
#include <thread>

#include "tests/fake/module_test.h"

namespace {

struct Row {
  const char* api;
  int version;
  const char* method;
  KALO::APIHandler entry;
};

constexpr std::array kRows = {
    Row{"KALO.Mesh.Upgrade", 1, "start", WebapiUpgradeStart},
    Row{"KALO.Mesh.Upgrade", 1, "status", WebapiUpgradeStatusV1},
    Row{"KALO.Mesh.Upgrade", 2, "status", WebapiUpgradeStatusV2},
    Row{"KALO.Mesh.Upgrade", 1, "progress", WebapiUpgradeProgress},
    Row{"KALO.Mesh.Upgrade", 2, "progress", WebapiUpgradeProgressV2},
    Row{"KALO.Mesh.Upgrade.Equal", 1, "start", WebapiUpgradeEqualStart},
    Row{"KALO.Mesh.Upgrade.Equal", 1, "cancel", WebapiUpgradeEqualCancel},
    Row{"KALO.Mesh.Upgrade.Patch", 1, "check", WebapiUpgradePatchCheck},
    Row{"KALO.Mesh.Upgrade.Patch", 2, "check", WebapiUpgradePatchCheck},
    Row{"KALO.Mesh.Upgrade.Patch", 1, "clean", WebapiUpgradePatchClean},
    Row{"KALO.Mesh.Upgrade.Patch", 1, "upload", WebapiUpgradePatchUpload},
    Row{"KALO.Mesh.Upgrade.Patch.Check", 1, "equal", WebapiUpgradePatchCheckEqual},
    Row{"KALO.Mesh.Upgrade.Download", 1, "start", WebapiUpgradeDownloadStart},
    Row{"KALO.Mesh.Upgrade.Download", 1, "cancel", WebapiUpgradeDownloadCancel},
    Row{"KALO.Mesh.Upgrade.Download", 1, "progress", WebapiUpgradeDownloadProgress},
    Row{"KALO.Mesh.Upgrade.Download", 2, "progress", WebapiUpgradeDownloadProgressV2},
    Row{"KALO.Mesh.Upgrade", 1, "precheck", WebapiUpgradeRunPrecheck},
};

TEST(ApiTable, HoldsTheSeventeenRowsInTheirStoredOrder) {
  static_assert(std::size(gTable) == kRows.size());
  for (std::size_t i = 0; i < kRows.size(); ++i) {
    EXPECT_EQ(std::string_view(gTable[i].api), kRows[i].api) << i;
    EXPECT_EQ(gTable[i].version, kRows[i].version) << i;
    EXPECT_EQ(std::string_view(gTable[i].method), kRows[i].method) << i;
    EXPECT_EQ(gTable[i].handler, kRows[i].entry) << i;
  }
}

TEST(ApiTable, RowsHaveTheLayoutThatTheLoaderReads) {
  static_assert(sizeof(KALO::APIRow) == 32);
  static_assert(offsetof(KALO::APIRow, api) == 0);
  static_assert(offsetof(KALO::APIRow, version) == 8);
  static_assert(offsetof(KALO::APIRow, method) == 16);
  static_assert(offsetof(KALO::APIRow, handler) == 24);
  EXPECT_EQ(sizeof(gTable), 544U);
}

TEST(ApiTable, AccessorReturnsTheTable) {
  EXPECT_EQ(GetAPITable(), gTable);
}

TEST(ApiTable, BothVersionsOfCheckShareOneEntryFunction) {
  EXPECT_EQ(gTable[7].handler, gTable[8].handler);
}

class EntryFunctions : public fake::ModuleTest {};

TEST_F(EntryFunctions, AnExceptionOutsideTheTablePassesOnToTheServer) {
  platform.throwers["client"] = fake::Throws(fake::NotStandard());
  for (const auto entry : {WebapiUpgradeStatusV1, WebapiUpgradeStatusV2, WebapiUpgradeProgress,
                           WebapiUpgradeProgressV2, WebapiUpgradeStart}) {
    EXPECT_THROW(Call(entry), fake::NotStandard);
  }
  EXPECT_THAT(Answers(), ::testing::IsEmpty());
}

TEST_F(EntryFunctions, EveryRowAnswers) {
  platform.AddNode(0, "M1", 76000);
  platform.fork_result = 4711;
  for (const KALO::APIRow& row : gTable) {
    platform.journal.Clear();
    Call(row.handler);
    EXPECT_EQ(Answers().size(), 1U) << row.api << " " << row.method;
  }
}

TEST_F(EntryFunctions, BearConcurrentCalls) {
  constexpr int kThreads = 4;
  constexpr int kCalls = 50;
  std::array<std::thread, kThreads> threads;
  std::array<int, kThreads> answered{};
  for (std::size_t i = 0; i < kThreads; ++i) {
    threads.at(i) = std::thread([&answered, i] {
      for (int n = 0; n < kCalls; ++n) {
        KALO::APIRequest call(Json::objectValue);
        KALO::APIResponse answer;
        WebapiUpgradeDownloadProgressV2(&call, &answer);
        answered.at(i) += answer.IsSuccess() && answer.Data()["status"] == "none" ? 1 : 0;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(answered, ::testing::Each(kCalls));
}

}  // namespace
