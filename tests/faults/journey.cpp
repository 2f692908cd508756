#include "tests/faults/journey.h"

#include <array>
#include <stdexcept>

#include "platform/paths.h"
#include "services/node/install_report.h"
#include "tests/faults/dead_job.h"
#include "tests/support/wait.h"

namespace kalo::faults {
namespace {

using test::HttpAnswer;

constexpr std::chrono::seconds kJobBegins{3};
constexpr std::chrono::seconds kJobDeadline{120};

std::string Staged(const char* file) {
  return std::string(KALO::paths::kStagedPatch) + "/" + file;
}

// Notes an answer. No envelope at all is what may never be.
bool Note(const std::string& what, const HttpAnswer& answer, Outcome& outcome) {
  outcome.words += what + ": " + std::to_string(answer.status) + " " + answer.body + "; ";
  if (answer.Code() < 0) outcome.broken = what + " got no answer: " + answer.body;
  return answer.Code() == 0;
}

Outcome Upload(FaultMesh& mesh) {
  Outcome outcome;
  outcome.success = Note("upload",
                         mesh.Client().PostForm("KALO.Mesh.Upgrade.Patch/1/upload",
                                                {{"kalo_m1_file", mesh.Patch(0), "m1.pat"},
                                                 {"kalo_m2_file", mesh.Patch(1), "m2.pat"}}),
                         outcome);
  for (int node = 0; outcome.success && node < 2; ++node) {
    if (!HoldsPatch(mesh, node)) {
      outcome.broken = "an upload was granted, and node " + std::to_string(node) + " has no patch";
    }
  }
  return outcome;
}

bool IsDownloading(const FaultMesh& mesh) {
  return mesh.Node(0).Count(kChildName) > 0 || mesh.Node(0).Count("kalomeshupgrade") > 0;
}

// Follows a download until it says how it ended. "finished" is said when the last patch is fetched;
// the nodes have theirs when the upgrade's file says so.
void Follow(FaultMesh& mesh, Outcome& outcome) {
  std::string step;
  DeadJob job;
  bool is_lie = false;
  const bool ended = test::WaitFor(
      [&] {
        // Before it is asked: one that is gone by then says nothing else any more.
        const bool is_gone = mesh.Node(0).Count(kChildName) == 0;
        const auto asked = DeadJob::Clock::now();
        const HttpAnswer answer = mesh.Poll("KALO.Mesh.Upgrade.Download/1/progress");
        if (answer.Code() < 0) outcome.broken = "progress got no answer: " + answer.body;
        step = answer.Data().isObject() ? answer.Data()["status"].asString() : "";
        const bool is_told = step == "downloading";
        is_lie = job.IsToldTooLong(asked, is_told, is_told && IsDownloading(mesh));
        if (is_lie) return true;
        if (answer.Code() != 0 || is_told) return false;
        return step != "finished" || is_gone;
      },
      kJobDeadline);
  outcome.words += "ended as " + step + "; ";
  if (!ended) outcome.broken = "a download does not end";
  if (is_lie) outcome.broken = "a dead job is told as running";
  const std::string nodes = mesh.Node(0).Read(KALO::paths::kUpgradeProgress);
  outcome.success = step == "finished" && nodes.find("ready_upgrade") != std::string::npos;
  // A node whose list or model could not be read is left out by the check. What other checks found
  // stands beside it.
  const std::string found =
      journeys::ValueIn(mesh.Node(0).Read(KALO::paths::kPatchInformation), "uniques_promo");
  for (int node = 0; outcome.success && node < 2; ++node) {
    if (HoldsPatch(mesh, node)) continue;
    const std::string name = "node " + std::to_string(node);
    const std::string model = "kalo_m" + std::to_string(node + 1) + "  " + std::to_string(node);
    if (found.find(model) != std::string::npos) {
      outcome.broken = "a download finished, and " + name + " has no patch";
    }
    outcome.words += name + " has no patch; ";
    outcome.success = false;
  }
}

Outcome Download(FaultMesh& mesh) {
  Outcome outcome;
  const HttpAnswer check = mesh.Client().Post("KALO.Mesh.Upgrade.Patch/2/check");
  if (!Note("check", check, outcome)) return outcome;
  if (check.Data()["promotion_version"] != journeys::kNext) return outcome;
  if (Note("start",
           mesh.Client().Post("KALO.Mesh.Upgrade.Download/1/start", R"({"is_promotion": true})"),
           outcome)) {
    Follow(mesh, outcome);
  }
  return outcome;
}

Outcome Precheck(FaultMesh& mesh) {
  Outcome outcome;
  const HttpAnswer answer =
      mesh.Client().Post("KALO.Mesh.Upgrade/1/precheck", R"({"lang": "enu"})");
  outcome.success = Note("precheck", answer, outcome) && answer.Data()["eulacheck"] == true &&
                    !answer.Data()["eulacheck_content"].asString().empty();
  return outcome;
}

Outcome Equal(FaultMesh& mesh) {
  Outcome outcome;
  const HttpAnswer answer =
      mesh.Client().Post("KALO.Mesh.Upgrade.Patch.Check/1/equal", R"({"nodes": [0, 1]})");
  outcome.success = Note("equal", answer, outcome) && answer.Data()["available"] == true &&
                    answer.Data()["version"] == mesh.Running(1);
  return outcome;
}

Outcome Clean(FaultMesh& mesh) {
  Outcome outcome;
  // A node that does not answer keeps what it has, and that is no failure; here each one answers
  // unless it was hit.
  outcome.success = Note("clean", mesh.Client().Post("KALO.Mesh.Upgrade.Patch/1/clean"), outcome) &&
                    mesh.Node(0).Read(Staged("info")).empty() &&
                    mesh.Node(1).Read(Staged("info")).empty();
  return outcome;
}

// Whether a node tells of an installation at which nobody works, and which waits for no restart.
class DeadInstallers {
 public:
  explicit DeadInstallers(const FaultMesh& mesh) : mesh_(mesh) {}

  [[nodiscard]] bool AreToldTooLong() {
    bool are = false;
    for (int id = 0; id < 2; ++id) {
      const auto asked = DeadJob::Clock::now();
      const bool works = !mesh_.Node(id).IsFree(KALO::paths::kInstallLock);
      const std::string report = mesh_.Node(id).Read(KALO::paths::kInstallReport);
      const std::string step = journeys::ValueIn(report, "step");
      const std::string percent = journeys::ValueIn(report, "percent");
      const bool is_told = !step.empty() && step != "none" && step != "failed" &&
                           step != "finish" && percent != std::to_string(node::kRestartAsked);
      are = jobs_.at(static_cast<std::size_t>(id)).IsToldTooLong(asked, is_told, works) || are;
    }
    return are;
  }

 private:
  const FaultMesh& mesh_;
  std::array<DeadJob, 2> jobs_;
};

// Follows an update until nothing says any more that one is under way. The CAP restarts meanwhile.
void FollowUpdate(FaultMesh& mesh, Outcome& outcome) {
  DeadJob job;
  DeadInstallers installers(mesh);
  bool is_lie = false;
  const auto runs = [&] {
    const auto asked = DeadJob::Clock::now();
    const std::string word = mesh.StatusWord();
    const bool is_told = word == "downloading";
    is_lie = job.IsToldTooLong(asked, is_told, is_told && IsDownloading(mesh)) ||
             installers.AreToldTooLong();
    if (is_lie) return false;
    return word == "upgrading" || is_told || word.starts_with('-') ||
           mesh.Node(0).Count("kalomeshupgrade") > 0;
  };
  // A job that dies at its first step may never be seen.
  (void)test::WaitFor(runs, kJobBegins);
  if (!test::WaitFor([&] { return !runs(); }, kJobDeadline)) {
    outcome.broken = "an update does not end";
  }
  if (is_lie) outcome.broken = "a dead job is told as running";
  outcome.words += "runs " + mesh.Running(0) + ", " + mesh.Running(1) + "; ";
}

Outcome Install(FaultMesh& mesh) {
  Outcome outcome;
  // It may have begun although its answer was lost.
  (void)Note("start", mesh.Client().Post("KALO.Mesh.Upgrade/1/start"), outcome);
  FollowUpdate(mesh, outcome);
  outcome.success = mesh.Running(0) == mesh.Wanted() && mesh.Running(1) == mesh.Wanted();
  return outcome;
}

Outcome Level(FaultMesh& mesh) {
  Outcome outcome;
  // Of a mesh that came to one version in spite of its fault nothing more can be asked.
  outcome.success = mesh.Running(0) == mesh.Running(1);
  if (outcome.success) return outcome;
  (void)Note("start", mesh.Client().Post("KALO.Mesh.Upgrade.Equal/1/start"), outcome);
  FollowUpdate(mesh, outcome);
  outcome.success = mesh.Running(0) == mesh.Running(1);
  return outcome;
}

// A newer version than the nodes run lies on each of them. A node takes none while it looks after
// its own start.
std::string StageNewer(FaultMesh& mesh) {
  mesh.MakeNewer();
  Outcome outcome;
  const auto is_taken = [&] {
    outcome = Upload(mesh);
    return outcome.success || (outcome.words.find(":5220,") == std::string::npos &&
                               outcome.words.find(":5229,") == std::string::npos);
  };
  (void)test::WaitFor(is_taken);
  return outcome.success ? outcome.broken : "cannot hand in a patch: " + outcome.words;
}

// The last check says which nodes are brought to which version.
std::string FindLagging(FaultMesh& mesh) {
  if (mesh.Running(0) == mesh.Running(1)) return "";
  const Outcome outcome = Equal(mesh);
  return outcome.success ? outcome.broken : "no node lags behind: " + outcome.words;
}

}  // namespace

bool HoldsPatch(const FaultMesh& mesh, int node) {
  const bool small = mesh.Kind() == MeshKind::kInstalling;
  return !mesh.Node(node).Read(Staged(small ? "small.info" : "info")).empty() &&
         mesh.Node(node).Read(Staged(small ? "small.pat" : "patch.pat")) == mesh.Patch(node);
}

std::string Prepare(FaultMesh& mesh, const std::string& journey) {
  if (journey == "install") return StageNewer(mesh);
  if (journey == "level") return FindLagging(mesh);
  if (journey != "precheck" && journey != "clean") return "";
  // The CAP's restart takes the locator, not the patch.
  const bool located = !mesh.Node(0).Read(KALO::paths::kFullPatchLocator).empty();
  if (located && HoldsPatch(mesh, 0) && HoldsPatch(mesh, 1)) return "";
  const Outcome outcome = Upload(mesh);
  return outcome.success ? outcome.broken : "cannot hand in a patch: " + outcome.words;
}

Outcome Go(FaultMesh& mesh, const std::string& journey) {
  if (journey == "upload") return Upload(mesh);
  if (journey == "download") return Download(mesh);
  if (journey == "precheck") return Precheck(mesh);
  if (journey == "equal") return Equal(mesh);
  if (journey == "clean") return Clean(mesh);
  if (journey == "install") return Install(mesh);
  if (journey == "level") return Level(mesh);
  throw std::runtime_error("there is no journey " + journey);
}

}  // namespace kalo::faults
