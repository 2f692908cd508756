#include "tests/faults/fault_mesh.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "host/core/strict_json.h"
#include "host/core/unique_fd.h"
#include "platform/paths.h"
#include "tests/support/wait.h"

namespace kalo::faults {
namespace fs = std::filesystem;
namespace {

constexpr const char* kShim = FAULT_SHIM;
constexpr int kNodes = 2;
constexpr const char* kMiddle = "1=VXM 1.4.0-76005";
constexpr std::chrono::seconds kReady{30};
// A node that stands still is given up after a time; the request that waits for it is answered
// then.
constexpr std::chrono::seconds kAnswer{60};
// Ten is what the rows' descriptions allow a poll; then its worker is killed and the client told.
constexpr std::chrono::seconds kPollAnswer{12};

// As a text of C, cut off where it must.
template <std::size_t N>
void SetText(std::array<char, N>& to, const std::string& text) {
  to = {};
  std::copy_n(text.begin(), std::min(text.size(), N - 1), to.begin());
}

std::string ReadAll(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

fs::path Patches() {
  return fs::path(KALO_BUILD) / "journeys/patches";
}

std::string Model(int node) {
  return "kalo_m" + std::to_string(node + 1);
}

FaultControl* MakeControl(const fs::path& path) {
  const UniqueFd fd(open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (!fd || ftruncate(fd.Get(), sizeof(FaultControl)) != 0) {
    throw std::runtime_error("cannot make " + path.native());
  }
  void* page = mmap(nullptr, sizeof(FaultControl), PROT_READ | PROT_WRITE, MAP_SHARED, fd.Get(), 0);
  if (page == MAP_FAILED) throw std::runtime_error("cannot map " + path.native());
  return static_cast<FaultControl*>(page);
}

}  // namespace

MeshKind KindFor(const std::string& journey) {
  if (journey == "install") return MeshKind::kInstalling;
  return journey == "level" ? MeshKind::kLagging : MeshKind::kStaying;
}

FaultMesh::FaultMesh(const std::string& name, MeshKind kind)
    : kind_(kind), state_(fs::path(KALO_BUILD) / "journeys" / name) {
  std::vector<std::string> options = {"--nodes", std::to_string(kNodes)};
  if (kind == MeshKind::kStaying) options.insert(options.end(), {"--node-version", kMiddle});
  if (kind == MeshKind::kLagging) {
    options.insert(options.end(), {"--node-version", std::string("1=") + journeys::kNext});
  }
  box_ = std::make_unique<journeys::MeshBox>(name, options);
  for (int id = 0; id < kNodes; ++id) {
    nodes_.emplace_back(state_ / "nodes" / std::to_string(id));
    patches_.emplace_back();
    console_read_.push_back(0);
  }
  if (kind == MeshKind::kStaying) PublishUsual();
  if (kind == MeshKind::kLagging) box_->Publish({"kalo_m1-76010"});
  LoadShim();
  const Json::Value box = ParseStrictJson(ReadAll(state_ / "box.json")).value_or(Json::Value());
  const std::string address = box["address"].asString();
  const int port = std::stoi(address.substr(address.rfind(':') + 1));
  client_ = std::make_unique<test::HttpClient>("127.0.0.1", port, box["ca"].asString());
  client_->SetPatience(kAnswer);
  if (!test::WaitFor(
          [&] { return client_->Login("admin", box["password"].asString()).status == 200; },
          kReady) ||
      !WaitUntilReady()) {
    throw std::runtime_error("the mesh does not come up with the shim: " + state_.native());
  }
  for (int id = 0; id < kNodes; ++id) (void)NewWords(id);
}

void FaultMesh::PublishUsual() {
  box_->Publish({"kalo_m1-offer-76005"});
  box_->Publish({"kalo_m1-offer-76010"});
  // A beta release is not in its model's regular list: so the second feed is asked too.
  box_->Publish({"kalo_m2-offer-76010"}, {"--phase", "Beta", "--field-build", "76005"});
  for (int id = 0; id < kNodes; ++id) {
    patches_.at(static_cast<std::size_t>(id)) =
        ReadAll(Patches() / (Model(id) + "-offer-76010.patch"));
  }
}

void FaultMesh::MakeNewer() {
  wanted_ = std::string(journeys::kFirst) + " Update " + std::to_string(++number_);
  const fs::path file = state_ / "newer.patch";
  for (int id = 0; id < kNodes; ++id) {
    fs::remove(file);
    const journeys::Outcome made = journeys::RunProgram(
        {fs::path(KALO_BUILD) / "programs/kalo-patch/kalo-patch", "make", Patches() / "small",
         "--unique", Model(id), "--version", wanted_, "--updater",
         std::string(KALO_SAMPLES) + "/updater", "--texts", std::string(KALO_SAMPLES) + "/texts",
         "--key", Patches() / "keys/patch.key", "-o", file});
    if (made.status != 0) throw std::runtime_error("no patch: " + made.err);
    patches_.at(static_cast<std::size_t>(id)) = ReadAll(file);
  }
}

std::string FaultMesh::Running(int node) const {
  return journeys::ValueIn(Node(node).Read(KALO::paths::kRunningVersion), "version");
}

// Every program of a node loads it from its next boot on.
void FaultMesh::LoadShim() {
  for (int id = 0; id < kNodes; ++id) {
    const fs::path etc = state_ / "nodes" / std::to_string(id) / "etc";
    controls_.push_back(MakeControl(etc / "fault-control"));
    fs::copy_file(kShim, etc / "fault-shim.so", fs::copy_options::overwrite_existing);
    std::ofstream(etc / "ld.so.preload") << "/etc/fault-shim.so\n";
  }
  for (int id = kNodes - 1; id >= 0; --id) {
    const fs::path old = nodes_[static_cast<std::size_t>(id)].Root();
    box_->Event(id, "offline");
    box_->Event(id, "online");
    if (!test::WaitFor([&] {
          const fs::path now = nodes_[static_cast<std::size_t>(id)].Root();
          return !now.empty() && now != old;
        })) {
      throw std::runtime_error("a node does not start with the shim");
    }
  }
}

std::string FaultMesh::NewWords(int node) {
  const std::string words = ReadAll(state_ / "nodes" / std::to_string(node) / "box/console");
  std::size_t& read = console_read_.at(static_cast<std::size_t>(node));
  std::string fresh = words.substr(std::min(read, words.size()));
  read = words.size();
  return fresh;
}

void FaultMesh::Arm(const FaultPoint& point) {
  armed_ = point.target.node;
  FaultControl& control = *controls_.at(static_cast<std::size_t>(armed_));
  SetText(control.program, point.target.program);
  SetText(control.only, point.call);
  control.side = point.target.side;
  control.action = point.action;
  control.error = point.error;
  control.nth = point.nth;
  control.count = 0;
  control.fired = 0;
  control.armed.store(1, std::memory_order_release);
}

std::vector<std::uint16_t> FaultMesh::Disarm() {
  FaultControl& control = *controls_.at(static_cast<std::size_t>(armed_));
  control.armed.store(0, std::memory_order_release);
  const std::uint32_t kept = std::min(control.count.load(), kKeptCalls);
  return {control.names.begin(), control.names.begin() + kept};
}

std::string FaultMesh::HitCall() const {
  const FaultControl& control = *controls_.at(static_cast<std::size_t>(armed_));
  return control.fired != 0 ? control.call.data() : "";
}

test::HttpAnswer FaultMesh::Poll(const std::string& row) {
  const auto begin = std::chrono::steady_clock::now();
  client_->SetPatience(kPollAnswer);
  test::HttpAnswer answer = client_->Post(row);
  client_->SetPatience(kAnswer);
  if (std::chrono::steady_clock::now() - begin >= kPollAnswer) late_polls_ += row + "; ";
  return answer;
}

std::string FaultMesh::StatusWord() {
  const test::HttpAnswer answer = Poll("KALO.Mesh.Upgrade/2/status");
  const Json::Value data = answer.Data();
  if (data.isObject() && data["status"].isString()) return data["status"].asString();
  return "- " + std::to_string(answer.status) + " " + answer.body;
}

bool FaultMesh::WaitUntilReady() {
  return test::WaitFor(
      [&] {
        const auto serves = [](const NodeView& node) {
          return std::filesystem::exists(node.In(KALO::paths::kLocalSocket));
        };
        if (!std::all_of(nodes_.begin(), nodes_.end(), serves)) return false;
        const std::string word = StatusWord();
        // "none" is said when something is ready of which a later check found nothing more.
        return word == "mesh_version_not_equal" || word == "ready_upgrade" || word == "none";
      },
      kReady);
}

}  // namespace kalo::faults
