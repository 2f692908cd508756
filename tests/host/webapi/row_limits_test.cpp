// The server kills a worker that takes longer than its row's limit, so no limit may be below what
// the row's method may wait for.

#include <gtest/gtest.h>

#include <map>

#include "host/core/guest_program.h"
#include "host/core/key_value_file.h"
#include "host/mesh/bus_connection.h"
#include "host/update/feed/feed_client.h"
#include "host/update/https_get.h"
#include "host/update/node_calls.h"
#include "host/webapi/module_description.h"
#include "programs/kalo-mesh/api_client.h"

namespace kalo::webapi {
namespace {

using std::chrono::milliseconds;

// The largest mesh that the limits are made for, each node of a model of its own.
constexpr int kNodes = 16;

constexpr milliseconds kNothing{0};
constexpr milliseconds kBus = mesh::BusConnection::kDeadline;
constexpr milliseconds kNodeList = 2 * kBus;
constexpr milliseconds kWrite = kWriterPatience;  // one key of a state file
const milliseconds kReleaseList = 2 * feed::kListTries * HttpsLimits{}.whole;
const milliseconds kAllReleaseLists = kNodes * kReleaseList;
constexpr milliseconds kOfferFeed{30000};  // the module's own argument of the fetching program
constexpr milliseconds kUpdater = GuestLimits{}.whole;
// Of one node: the regular check, the feed, the small update with its own node list.
const milliseconds kOffer = kReleaseList + kOfferFeed + kNodeList + kReleaseList;
// "clean" on every node, after the recovery program's own round.
constexpr milliseconds kCleanNodes = 3 * kNodeCallDeadline;
constexpr milliseconds kRecord = kNodeList + 3 * kWrite;
// Node list, offers with the rollout group, at most two records, the clean-up of a download that no
// longer fits, the notified version.
const milliseconds kCheck = kNodeList + 7 * kWrite + kNodes * (kOffer + kWrite) + 2 * kRecord +
                            kNodeList + kCleanNodes + kWrite;
const milliseconds kUploads = kNodeList + kCleanNodes + kNodes * UploadLimits{}.whole + 3 * kWrite;

const std::map<std::string, milliseconds> kWaits = {
    {"KALO.Mesh.Upgrade 1 start", kBus + 2 * kWrite},
    {"KALO.Mesh.Upgrade 1 status", kBus + kNodeList},
    {"KALO.Mesh.Upgrade 2 status", kBus + kNodeList},
    {"KALO.Mesh.Upgrade 1 progress", kBus},
    {"KALO.Mesh.Upgrade 2 progress", kBus},
    {"KALO.Mesh.Upgrade 1 precheck", kNodeList + 3 * kUpdater},
    {"KALO.Mesh.Upgrade.Equal 1 start", kNothing},
    {"KALO.Mesh.Upgrade.Equal 1 cancel", kNothing},
    {"KALO.Mesh.Upgrade.Patch 1 check", kCheck},
    {"KALO.Mesh.Upgrade.Patch 2 check", kCheck},
    {"KALO.Mesh.Upgrade.Patch 1 clean", 6 * kWrite + kNodeList + kCleanNodes},
    {"KALO.Mesh.Upgrade.Patch 1 upload", kUploads},
    {"KALO.Mesh.Upgrade.Patch.Check 1 equal",
     kNodeList + 5 * kWrite + kAllReleaseLists + 2 * kRecord},
    {"KALO.Mesh.Upgrade.Download 1 start", kCheck + 2 * kWrite},
    {"KALO.Mesh.Upgrade.Download 1 cancel", 3 * kWrite},
    {"KALO.Mesh.Upgrade.Download 1 progress", kNothing},
    {"KALO.Mesh.Upgrade.Download 2 progress", kNothing},
    {"KALO.Core.Upgrade 1 info", kNothing},
    {"KALO.Core.Upgrade 1 progress", kNothing},
    {"KALO.Core.Upgrade 1 start", kNothing},
    {"KALO.Core.Upgrade.Patch 1 upload", kNothing},
    {"KALO.Core.Upgrade.Patch 1 clean", kNothing},
    {"KALO.Core.Mesh 1 nodes", kBus},
    {"KALO.Core.Mesh 1 events", kBus},
    {"KALO.Core.Mesh 1 history", kNothing},
    {"KALO.Core.Mesh 1 releases", kBus + kAllReleaseLists},
    {"KALO.Core.Mesh 1 diagnosis", kBus},
    {"KALO.Core.Notification 1 list", kNothing},
    {"KALO.Core.Notification 1 dismiss", kNothing},
};

std::map<std::string, milliseconds> Limits() {
  std::map<std::string, milliseconds> limits;
  const ModuleFolder folder = ReadModuleFolder(DESCRIPTIONS);
  EXPECT_TRUE(folder.errors.empty());
  for (const ModuleDescription& module : folder.modules) {
    for (const RowDescription& row : module.rows) {
      limits[row.api + " " + std::to_string(row.version) + " " + row.method] = row.timeout;
    }
  }
  return limits;
}

TEST(RowLimits, NoneIsBelowWhatTheRowMayWaitFor) {
  const auto limits = Limits();
  EXPECT_EQ(limits.size(), kWaits.size());
  for (const auto& [row, limit] : limits) {
    const auto waits = kWaits.find(row);
    ASSERT_NE(waits, kWaits.end()) << row << ": add what it waits for";
    EXPECT_GT(limit, waits->second) << row;
  }
}

TEST(RowLimits, ADownloadMayTakeAsLongToStartAsACheck) {
  auto limits = Limits();
  EXPECT_GE(limits["KALO.Mesh.Upgrade.Download 1 start"],
            limits["KALO.Mesh.Upgrade.Patch 1 check"]);
}

TEST(RowLimits, TheCommandLineWaitsAsLongAsTheServer) {
  for (const auto& [row, limit] : Limits()) EXPECT_GE(cli::ApiClient::kLongPatience, limit) << row;
}

}  // namespace
}  // namespace kalo::webapi
