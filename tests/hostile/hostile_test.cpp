// Twenty thousand requests that nobody means well with. Behind the server stands a module that only
// notes what reaches it.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iostream>
#include <map>
#include <regex>
#include <set>

#include "host/core/strict_json.h"
#include "tests/hostile/attack.h"
#include "tests/hostile/background.h"
#include "tests/hostile/files.h"
#include "tests/hostile/rows.h"
#include "tests/services/webapid/server_fixture.h"
#include "tests/support/raw_client.h"
#include "tests/support/wait.h"

namespace kalo::hostile {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using test::ClientFiles;
using test::RawClient;

constexpr int kAttacks = 20000;
constexpr int kAddresses = 200;
constexpr milliseconds kAnswerDeadline{20000};
constexpr milliseconds kPollDeadline{1000};
constexpr const char* kStatusRow = "KALO.Mesh.Upgrade/2/status";

class Hostile : public test::ServerTest {
 protected:
  void SetUp() override {
    ServerTest::SetUp();
    ASSERT_EQ(Stop(), 0);
    for (const char* file : {"template.json", "template.so"}) {
      fs::remove(fs::path("/usr/kalo/webapi") / file);
    }
    InstallRecorder();
    InstallTriedUsers();
    fs::remove(kReached);
    Start();
    WriteClients();
  }

  // The real descriptions, with the recording module behind each.
  void InstallRecorder() {
    Json::Value all(Json::objectValue);
    all["library"] = "recorder.so";
    all["rows"] = ReadDescriptions();
    rows_ = KnownRows(all["rows"]);
    std::set<std::string> recorded;
    for (const Row& row : kRows) recorded.insert(KnownRow{row.api, row.version, row.method}.Name());
    for (const KnownRow& row : rows_) {
      EXPECT_TRUE(row.is_front || recorded.erase(row.Name()) == 1) << "no " << row.Name();
    }
    EXPECT_TRUE(recorded.empty()) << "no module has " << *recorded.begin();
    fs::create_symlink(RECORDER_MODULE, "/usr/kalo/webapi/recorder.so");
    test::WriteTestFile("/usr/kalo/webapi/recorder.json", WriteJson(all));
  }

  // Several, because one of them has to wait longer after each try.
  static void InstallTriedUsers() {
    auto users =
        ParseStrictJson(test::ReadTestFile("/etc/kalo/users.json")).value_or(Json::Value());
    Json::Value administrator = users["users"][0];
    for (int i = 0; i < kTriedUsers; ++i) {
      administrator["name"] = kTriedUserPrefix + std::to_string(i);
      users["users"].append(administrator);
    }
    test::WriteTestFile("/etc/kalo/users.json", WriteJson(users));
    EXPECT_STREQ(kPassword, kRightPassword);
  }

  static void WriteClients() {
    const test::TestAuthority other;
    WriteClient(Door::kMeshStranger, other.Issue("node0.mesh.internal"));
    WriteClient(Door::kMeshNode0, MeshAuthority().Issue("node0.mesh.internal"));
    WriteClient(Door::kMeshNode1, MeshAuthority().Issue("node1.mesh.internal"));
  }

  static void WriteClient(Door door, const test::Credential& credential) {
    test::WriteTestFile(FilesOf(door).certificate, credential.certificate);
    test::WriteTestFile(FilesOf(door).key, credential.key);
  }

  static ClientFiles FilesOf(Door door) {
    if (door == Door::kAdminPort || door == Door::kMeshNobody) return {};
    const std::string path = "/tmp/client/" + std::to_string(static_cast<int>(door));
    return {path + ".crt", path + ".key"};
  }

  // From another address each time: whoever tried a wrong password has to wait before the next.
  RawClient& Open(Door door) {
    auto& client = clients_[door];
    if (client && client->IsOpen()) return *client;
    const int port = door == Door::kAdminPort ? kAdminPort : kMeshPort;
    const std::string address = "127.0.1." + std::to_string(1 + opened_++ % kAddresses);
    client = std::make_unique<RawClient>(port, FilesOf(door), test::Origin{address});
    EXPECT_TRUE(client->IsOpen()) << "no handshake on port " << port;
    return *client;
  }

  // The whole lines that the module wrote since the last call, but for the pollers'.
  std::vector<Json::Value> NewlyReached() {
    std::vector<Json::Value> lines;
    std::error_code none;
    const std::uintmax_t size = fs::file_size(kReached, none);
    if (none || size == read_) return lines;
    std::ifstream file(kReached);
    file.seekg(static_cast<std::streamoff>(read_));
    for (std::string line; std::getline(file, line) && !file.eof();) {
      read_ += line.size() + 1;
      const Json::Value entry = ParseStrictJson(line).value_or(Json::Value(Json::objectValue));
      if (entry["mark"] != kPollMark) lines.push_back(entry);
    }
    return lines;
  }

  // On a connection that others used before, which the server may have given up meanwhile.
  int Send(const Attack& attack) {
    const bool used = clients_[attack.door] && clients_[attack.door]->IsOpen();
    RawClient& client = Open(attack.door);
    client.Send(attack.bytes);
    if (!attack.is_complete) return 0;
    const int status = client.Answer(kAnswerDeadline, !attack.bytes.starts_with("HEAD"));
    if (status != 0 || !used) return status;
    clients_[attack.door].reset();
    return Send(attack);
  }

  void Run(const Attack& attack) {
    const std::string shown = attack.bytes.substr(0, 900);
    const auto begin = steady_clock::now();
    const int status = Send(attack);
    ++statuses_[status];
    EXPECT_LT(steady_clock::now() - begin, kAnswerDeadline) << shown;
    EXPECT_TRUE(status != 200 || attack.MayReach()) << "no right to an answer has\n" << shown;
    // What is left of a request that lied about its length is no second request of ours.
    if (status == 0 || !attack.is_clean) clients_[attack.door].reset();
    const std::vector<Json::Value> lines = NewlyReached();
    for (const Json::Value& line : lines) {
      EXPECT_TRUE(IsRight(line, attack)) << WriteJson(line) << " by\n" << shown;
      stored_ += line["files"].size();
    }
    if (attack.MustReach()) {
      EXPECT_TRUE(status == 200 && !lines.empty()) << status << " for\n" << shown;
    }
    Count(attack, !lines.empty());
  }

  // Whether a line may be this request's: not every odd one keeps its mark.
  static bool IsRight(const Json::Value& line, const Attack& attack) {
    static const std::regex stored("/volume1/@upload/[0-9a-f]{32}/[0-9]+");
    const std::string mark = line["mark"].asString();
    if (!attack.MayReach() || line["row"] != attack.row->Name()) return false;
    if (mark != attack.mark && (attack.form == Form::kProper || !mark.empty())) return false;
    return std::all_of(line["files"].begin(), line["files"].end(), [](const Json::Value& file) {
      return file.isString() && std::regex_match(file.asString(), stored);
    });
  }

  void Count(const Attack& attack, bool has_reached) {
    if (has_reached) ++reached_;
    if (attack.form == Form::kProper) ++tried_[{attack.row->Name(), attack.caller}];
  }

  // Everybody asked for everything, with nothing wrong but perhaps who he was. On the admin port
  // who is signed in may sign out.
  void ExpectAllTried() {
    for (const KnownRow& row : rows_) {
      for (const Caller caller : {Caller::kNobody, Caller::kUser, Caller::kAdministrator,
                                  Caller::kNode0, Caller::kOtherNode}) {
        const bool is_user = caller == Caller::kUser || caller == Caller::kAdministrator;
        const std::pair attempt{row.Name(), caller};
        EXPECT_TRUE(tried_[attempt] > 0 || (row.is_front && is_user))
            << row.Name() << " by caller " << static_cast<int>(caller);
      }
    }
  }

  void Report(const char* who, const std::vector<milliseconds>& times) {
    ASSERT_GT(times.size(), 20U);
    EXPECT_LT(times.back(), kPollDeadline) << "the slowest poll by " << who;
    std::cout << times.size() << " polls by " << who << " meanwhile, median "
              << times.at(times.size() / 2).count() << " ms, longest " << times.back().count()
              << " ms\n";
  }

  std::vector<KnownRow> rows_;
  std::map<Door, std::unique_ptr<RawClient>> clients_;
  std::map<int, int> statuses_;
  std::map<std::pair<std::string, Caller>, int> tried_;
  std::uintmax_t read_ = 0;
  int opened_ = 0;
  int reached_ = 0;
  unsigned stored_ = 0;
};

TEST_F(Hostile, TwentyThousandRequestsReachNothingAndLeaveNothing) {
  test::HttpClient admin = SignedIn();
  const test::HttpClient guest = SignedIn(kGuest);
  const test::HttpClient node = Node(MeshAuthority(), "node0.mesh.internal");
  const Session administrator{admin.cookie, admin.token};
  const auto before = Files();
  Poller page(admin, {"KALO.Mesh.Upgrade/1/status", kStatusRow, "KALO.Mesh.Upgrade/2/progress"});
  Poller mesh(node, {"KALO.Core.Upgrade/1/progress", "KALO.Core.Upgrade/1/info"});
  {
    const SlowSenders slow(administrator);
    AttackMaker maker(20261121, rows_, administrator, {guest.cookie, guest.token});
    for (int i = 0; i < kAttacks && !HasFailure(); ++i) Run(maker.Next());
    if (HasFailure()) return;
    EXPECT_FALSE(fs::is_empty("/volume1/@upload")) << "slow files are under way";
  }
  clients_.clear();
  Report("pages", page.Stop());
  Report("node 0", mesh.Stop());
  std::cout << "reached with a right to: " << reached_ << ", files: " << stored_ << "; answers:";
  for (const auto& [status, count] : statuses_) std::cout << " " << status << ": " << count;
  std::cout << "\n";
  ExpectAllTried();
  EXPECT_GT(stored_, 0U) << "no file came along";
  EXPECT_GT(statuses_[403] + statuses_[401], kAttacks / 4);
  EXPECT_TRUE(test::WaitFor([&] { return Files() == before; }));
  const auto after = Files();
  for (const auto& [path, what] : after) EXPECT_TRUE(before.contains(path)) << path << " was left";
  for (const auto& [path, what] : before) {
    const auto found = after.find(path);
    EXPECT_EQ(found == after.end() ? "gone" : found->second, what) << path;
  }
  EXPECT_TRUE(NewlyReached().empty()) << "something came after its end";
  EXPECT_EQ(admin.Post(kStatusRow).Code(), 0) << "the server serves on";
  EXPECT_EQ(SignedIn(kGuest).Post("KALO.Core.Auth/1/logout").Code(), 0) << "and signs in and out";
}

}  // namespace
}  // namespace kalo::hostile
