#include "tests/journeys/support/mesh_box.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <json/reader.h>
#include <sys/types.h>
#include <sys/wait.h>

#include <csignal>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

#include "host/core/spawn.h"
#include "host/core/unique_fd.h"
#include "tests/support/wait.h"

namespace kalo::journeys {
namespace fs = std::filesystem;
namespace {

constexpr const char* kBuild = KALO_BUILD;
constexpr std::chrono::seconds kEndDeadline{30};
// A checked build's firmware is large: two uploads, one staged patch and two slots of it.
constexpr const char* kDiskMib = "1024";

fs::path Patches() {
  return fs::path(kBuild) / "journeys/patches";
}

std::string Read(const fs::path& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

Json::Value ParseOrNull(const std::string& text) {
  Json::CharReaderBuilder builder;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value value;
  if (!reader->parse(text.data(), text.data() + text.size(), &value, nullptr)) return {};
  return value;
}

}  // namespace

std::string Patch(const std::string& model, int build) {
  return model + "=" + (Patches() / (model + "-" + std::to_string(build) + ".patch")).string();
}

std::string ValueIn(const std::string& text, const std::string& key) {
  const std::string mark = "\n" + key + "=\"";
  const std::string lines = "\n" + text;
  std::size_t begin = lines.find(mark);
  if (begin == std::string::npos) return "";
  begin += mark.size();
  return lines.substr(begin, lines.find('"', begin) - begin);
}

MeshBox::MeshBox(const std::string& name, const std::vector<std::string>& options)
    : state_(fs::path(kBuild) / "journeys" / name) {
  try {
    Start(options);
    Login();
  } catch (...) {
    End();  // nobody else does it for an object that was never made
    throw;
  }
}

std::string MeshBox::Box() const {
  return fs::path(kBuild) / "box/kalo-box";
}

void MeshBox::Start(const std::vector<std::string>& more) {
  fs::create_directories(state_);
  fs::remove(state_ / "box.json");
  const UniqueFd log(
      open((state_.native() + ".log").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  SpawnOptions options;
  options.stdout_fd = log.Get();
  options.stderr_fd = log.Get();
  std::vector<std::string> argv = {Box(),        "up",     "--state",      state_,
                                   "--build",    kBuild,   "--patch-keys", Patches() / "keys",
                                   "--disk-mib", kDiskMib, "--foreground", "--die-with-parent"};
  argv.insert(argv.end(), more.begin(), more.end());
  pid_ = Spawn(argv, options);
  const bool up = test::WaitFor(
      [&] {
        if (pid_ > 0 && waitpid(pid_, nullptr, WNOHANG) == pid_) pid_ = 0;
        return pid_ <= 0 || fs::exists(state_ / "box.json");
      },
      kDeadline);
  if (!up || pid_ <= 0) throw std::runtime_error("no mesh: " + Read(state_.native() + ".log"));
}

// What a checked build says of a program in a node, it says there.
void MeshBox::ExpectCleanConsoles() const {
  for (const auto& node : fs::directory_iterator(state_ / "nodes")) {
    const std::string console = Read(node.path() / "box/console");
    EXPECT_EQ(console.find("Sanitizer"), std::string::npos) << console;
    EXPECT_EQ(console.find("runtime error"), std::string::npos) << console;
  }
}

MeshBox::~MeshBox() {
  End();
}

void MeshBox::End() {
  if (pid_ <= 0) return;
  kill(pid_, SIGTERM);
  const bool ended =
      test::WaitFor([&] { return waitpid(pid_, nullptr, WNOHANG) == pid_; }, kEndDeadline);
  EXPECT_TRUE(ended) << "the mesh does not end";
  ExpectCleanConsoles();
  if (ended) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

void MeshBox::Login() {
  const Json::Value box = ParseOrNull(Read(state_ / "box.json"));
  const fs::path password = state_ / "password";
  std::ofstream(password) << box["password"].asString() << "\n";
  const Answer answer = Cli({"login", "--server", box["address"].asString(), "--ca",
                             box["ca"].asString(), "--password-file", password});
  if (answer.status != 0) throw std::runtime_error("cannot sign in: " + answer.text);
  const auto is_in_sync = [this] {
    const std::string word = Status()["status"].asString();
    return word == "none" || word == "mesh_version_not_equal";
  };
  if (!test::WaitFor(is_in_sync, kDeadline)) {
    throw std::runtime_error("not in sync: " + Cli({"status"}).text);
  }
}

Answer MeshBox::Cli(const std::vector<std::string>& words) const {
  std::vector<std::string> argv = {fs::path(kBuild) / "programs/kalo-mesh/kalo-mesh", "--session",
                                   state_ / "session.json"};
  argv.insert(argv.end(), words.begin(), words.end());
  argv.emplace_back("--json");
  const Outcome outcome = RunProgram(argv);
  // A failure that is told in the answer itself has words on both sides.
  const std::string& text = outcome.out.empty() ? outcome.err : outcome.out;
  return {outcome.status, ParseOrNull(text), outcome.out + outcome.err};
}

Answer MeshBox::Upload(const std::vector<std::string>& patches) const {
  std::vector<std::string> words = {"upload"};
  words.insert(words.end(), patches.begin(), patches.end());
  return Cli(words);
}

void MeshBox::UploadNext() const {
  const Answer answer = Upload({Patch("kalo_m1", 76010), Patch("kalo_m2", 76010)});
  if (answer.status != 0) throw std::runtime_error("upload: " + answer.text);
}

void MeshBox::Publish(const std::vector<std::string>& patches,
                      const std::vector<std::string>& options) const {
  std::vector<std::string> argv = {fs::path(kBuild) / "programs/kalo-patch/kalo-patch",
                                   "publish",
                                   "--feed",
                                   Feed(),
                                   "--key",
                                   Patches() / "keys/patch.key"};
  for (const std::string& patch : patches) argv.push_back(Patches() / (patch + ".patch"));
  argv.insert(argv.end(), options.begin(), options.end());
  const Outcome outcome = RunProgram(argv);
  if (outcome.status != 0) throw std::runtime_error("publish: " + outcome.err);
}

Outcome MeshBox::Exec(int node, const std::vector<std::string>& argv) const {
  std::vector<std::string> words = {Box(), "exec", "--state", state_, std::to_string(node), "--"};
  words.insert(words.end(), argv.begin(), argv.end());
  return RunProgram(words);
}

void MeshBox::Event(int node, const std::string& word) const {
  const Outcome outcome =
      RunProgram({Box(), "event", "--state", state_, std::to_string(node), word});
  if (outcome.status != 0) throw std::runtime_error("event " + word + ": " + outcome.err);
}

Json::Value MeshBox::Node(int id) const {
  const Answer answer = Cli({"nodes"});
  if (answer.status != 0 || !answer.data["nodes"].isArray()) return {};
  for (const Json::Value& node : answer.data["nodes"]) {
    if (node["id"] == id) return node;
  }
  return {};
}

bool MeshBox::WaitForStaged(int node, const std::string& version) const {
  return test::WaitFor(
      [&] {
        const Json::Value known = Node(node);
        return known.isObject() && known["staged_version"] == version;
      },
      kDeadline);
}

std::string MeshBox::RunningVersion(int node) const {
  return ValueIn(Exec(node, {"cat", "/usr/kalo/VERSION"}).out, "version");
}

Json::Value MeshBox::Status() const {
  const Answer answer = Cli({"status"});
  return answer.status == 0 ? answer.data : Json::Value();
}

bool MeshBox::WaitForStatus(const std::string& word) const {
  return test::WaitFor(
      [&] {
        const Json::Value status = Status();
        return status.isObject() && status["status"] == word;
      },
      kDeadline);
}

bool MeshBox::LogHas(const std::string& text) const {
  return Exec(0, {"cat", "/var/log/messages"}).out.find(text) != std::string::npos;
}

}  // namespace kalo::journeys
