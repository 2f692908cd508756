// Twenty thousand requests that nobody means well with. Behind the server stands a module that only
// notes what reaches it.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <map>
#include <set>
#include <sstream>
#include <thread>

#include "host/core/strict_json.h"
#include "tests/hostile/attack.h"
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

constexpr int kAdminPort = 443;
constexpr int kMeshPort = 8443;
constexpr int kAttacks = 20000;
constexpr int kSlowSenders = 30;
constexpr milliseconds kAnswerDeadline{20000};
constexpr const char* kSlowestRow = "KALO.Mesh.Upgrade/2/status";

// Every file that a request might leave, by its path, with its size. The build folder is others' as
// well, and lies below /tmp when the tree does.
std::map<std::string, std::uintmax_t> Files() {
  std::map<std::string, std::uintmax_t> files;
  for (const char* folder : {"/etc/kalo", "/run", "/tmp", "/var/lib", "/volume1", "/usr/kalo"}) {
    std::error_code ignored;
    for (fs::recursive_directory_iterator entry(folder, ignored), end; entry != end;
         entry.increment(ignored)) {
      const std::string path = entry->path();
      if (path == BUILD) entry.disable_recursion_pending();
      if (path == kReached || path.starts_with("/var/lib/kalo/sessions/")) continue;
      files[path] = entry->is_regular_file(ignored) ? entry->file_size(ignored) : 0;
    }
  }
  return files;
}

// Asks the poll that pages ask, all the time, and notes how long each answer took.
class Poller {
 public:
  explicit Poller(test::HttpClient client)
      : client_(std::move(client)), thread_([this] { Run(); }) {}
  Poller(const Poller&) = delete;
  Poller& operator=(const Poller&) = delete;
  ~Poller() {
    if (thread_.joinable()) (void)Stop();
  }

  // @return all times, shortest first.
  std::vector<milliseconds> Stop() {
    over_ = true;
    thread_.join();
    std::sort(times_.begin(), times_.end());
    return times_;
  }

 private:
  void Run() {
    while (!over_) {
      const auto begin = steady_clock::now();
      EXPECT_EQ(client_.Post(kSlowestRow, R"({"mark":"poll"})").Code(), 0);
      times_.push_back(std::chrono::duration_cast<milliseconds>(steady_clock::now() - begin));
      (void)test::WaitFor([this] { return over_.load(); }, milliseconds(50));
    }
  }

  test::HttpClient client_;
  std::atomic<bool> over_ = false;
  std::vector<milliseconds> times_;
  std::thread thread_;
};

// Clients that send a byte from time to time and never come to an end.
class SlowSenders {
 public:
  SlowSenders() : thread_([this] { Run(); }) {}
  SlowSenders(const SlowSenders&) = delete;
  SlowSenders& operator=(const SlowSenders&) = delete;
  ~SlowSenders() {
    over_ = true;
    thread_.join();
  }

 private:
  void Run() {
    std::vector<std::unique_ptr<RawClient>> clients(kSlowSenders);
    while (!over_) {
      for (auto& client : clients) {
        if (!client || !client->IsOpen()) {
          client = std::make_unique<RawClient>(kAdminPort, ClientFiles{});
          client->Send("POST /webapi/KALO.Mesh.Upgrade/1/start HTTP/1.1\r\nX-Slow: ");
        }
        client->Send("s");
      }
      (void)test::WaitFor([this] { return over_.load(); }, milliseconds(200));
    }
  }

  std::atomic<bool> over_ = false;
  std::thread thread_;
};

class Hostile : public test::ServerTest {
 protected:
  void SetUp() override {
    ServerTest::SetUp();
    ASSERT_EQ(Stop(), 0);
    for (const char* file : {"template.json", "template.so"}) {
      fs::remove(fs::path("/usr/kalo/webapi") / file);
    }
    InstallRecorder();
    fs::remove(kReached);
    Start();
    WriteClients();
  }

  // The real descriptions, with the recording module behind each.
  static void InstallRecorder() {
    fs::create_symlink(RECORDER_MODULE, "/usr/kalo/webapi/recorder.so");
    std::set<std::string> known;
    for (const Row& row : kRows) known.insert(Name(row.api, row.version, row.method));
    Json::Value all(Json::objectValue);
    all["library"] = "recorder.so";
    for (const char* name : {"mesh-upgrade", "core-mesh", "core-upgrade", "core-notification"}) {
      const auto text = test::ReadTestFile(fs::path(DESCRIPTIONS) / (std::string(name) + ".json"));
      const Json::Value module = ParseStrictJson(text).value_or(Json::Value());
      for (const Json::Value& row : module["rows"]) {
        all["rows"].append(row);
        EXPECT_EQ(known.erase(Name(row["api"].asString(), row["version"].asInt(),
                                   row["method"].asString())),
                  1U)
            << "rows.h lacks " << WriteJson(row);
      }
    }
    EXPECT_TRUE(known.empty()) << "no module has " << *known.begin();
    test::WriteTestFile("/usr/kalo/webapi/recorder.json", WriteJson(all));
  }

  static std::string Name(const std::string& api, int version, const std::string& method) {
    return api + " " + std::to_string(version) + " " + method;
  }

  void WriteClients() {
    const test::TestAuthority other;
    WriteClient("stranger", other.Issue("node0.mesh.internal"));
    WriteClient("node1", MeshAuthority().Issue("node1.mesh.internal"));
  }

  static void WriteClient(const std::string& name, const test::Credential& credential) {
    test::WriteTestFile("/tmp/client/" + name + ".crt", credential.certificate);
    test::WriteTestFile("/tmp/client/" + name + ".key", credential.key);
  }

  static ClientFiles FilesOf(const std::string& name) {
    return {"/tmp/client/" + name + ".crt", "/tmp/client/" + name + ".key"};
  }

  RawClient& Open(Door door) {
    auto& client = clients_[door];
    if (client && client->IsOpen()) return *client;
    const int port = door == Door::kAdminPort ? kAdminPort : kMeshPort;
    ClientFiles files;
    if (door == Door::kMeshStranger) files = FilesOf("stranger");
    if (door == Door::kMeshNode1) files = FilesOf("node1");
    client = std::make_unique<RawClient>(port, files);
    return *client;
  }

  // The lines that the module wrote since the last call, but for the poller's.
  std::vector<std::string> NewlyReached() {
    std::error_code none;
    const std::uintmax_t size = fs::file_size(kReached, none);
    if (none || size == read_) return {};
    std::istringstream text(test::ReadTestFile(kReached).substr(read_));
    std::vector<std::string> lines;
    std::string line;
    while (std::getline(text, line)) {
      read_ += line.size() + 1;
      if (line != "poll") lines.push_back(line);
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
    const auto begin = steady_clock::now();
    const int status = Send(attack);
    ++statuses_[status];
    EXPECT_LT(steady_clock::now() - begin, kAnswerDeadline) << attack.bytes.substr(0, 600);
    // What is left of a request that lied about its length is no second request of ours.
    if (status == 0 || !attack.is_clean) clients_[attack.door].reset();
    for (const std::string& line : NewlyReached()) {
      ++reached_;
      EXPECT_TRUE(attack.may_reach) << line << " by\n" << attack.bytes.substr(0, 600);
      const std::size_t file = line.find(' ');
      if (file == std::string::npos) continue;
      EXPECT_TRUE(line.substr(file + 1).starts_with("/volume1/@upload/")) << line;
      EXPECT_EQ(line.find("..", file), std::string::npos) << line;
    }
  }

  std::map<Door, std::unique_ptr<RawClient>> clients_;
  std::map<int, int> statuses_;
  std::uintmax_t read_ = 0;
  int reached_ = 0;
};

TEST_F(Hostile, TwentyThousandRequestsReachNothingAndLeaveNothing) {
  const test::HttpClient admin = SignedIn();
  const test::HttpClient guest = SignedIn(kGuest);
  const auto before = Files();
  Poller poller(admin);
  {
    const SlowSenders slow;
    AttackMaker maker(20261121, {admin.cookie, admin.token}, {guest.cookie, guest.token});
    for (int i = 0; i < kAttacks && !HasFailure(); ++i) Run(maker.Next());
  }
  const std::vector<milliseconds> times = poller.Stop();
  clients_.clear();
  ASSERT_GT(times.size(), 20U);
  EXPECT_LT(times.at(times.size() * 99 / 100).count(), 1000) << "one poll in a hundred";
  std::cout << times.size() << " polls meanwhile, median " << times.at(times.size() / 2).count()
            << " ms, longest " << times.back().count()
            << " ms; reached with a right to: " << reached_ << "; answers:";
  for (const auto& [status, count] : statuses_) std::cout << " " << status << ": " << count;
  std::cout << "\n";
  // Both kinds came along: else nothing was tried.
  EXPECT_GT(reached_, 20);
  EXPECT_GT(statuses_[403] + statuses_[401], kAttacks / 4);
  EXPECT_TRUE(test::WaitFor([&] { return Files() == before; }));
  const auto after = Files();
  for (const auto& [path, size] : after) EXPECT_TRUE(before.contains(path)) << path << " was left";
  for (const auto& [path, size] : before) EXPECT_TRUE(after.contains(path)) << path << " is gone";
  test::HttpClient again = SignedIn();
  EXPECT_EQ(again.Post(kSlowestRow).Code(), 0) << "the server serves on";
}

}  // namespace
}  // namespace kalo::hostile
