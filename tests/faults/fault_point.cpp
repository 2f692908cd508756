#include "tests/faults/fault_point.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <set>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace kalo::faults {
namespace {

// What the kernel says when a disk breaks, is full, when memory or descriptors run out, when a
// right is missing, when the other side is gone. Each call gets one of them, in turn.
constexpr std::array<std::pair<const char*, int>, 6> kErrors = {{{"EIO", EIO},
                                                                 {"ENOSPC", ENOSPC},
                                                                 {"ENOMEM", ENOMEM},
                                                                 {"EMFILE", EMFILE},
                                                                 {"EACCES", EACCES},
                                                                 {"ECONNRESET", ECONNRESET}}};

constexpr std::array<const char*, 6> kActions = {"none", "fail", "kill", "plug", "garble", "half"};
constexpr std::array<const char*, 5> kJourneys = {"upload", "download", "precheck", "equal",
                                                  "clean"};
// Those in which the CAP asks its nodes itself, and how many answers it gets at most.
constexpr std::array<const char*, 3> kAskingJourneys = {"upload", "download", "clean"};
constexpr std::uint32_t kMostAnswers = 3;
constexpr std::uint32_t kCallsWithPlug = 600;
constexpr std::uint32_t kPlugEvery = 20;  // each takes seconds
// Of the installer itself, which is the child, and of what starts it and confirms the boot.
constexpr std::array<std::pair<Side, std::uint32_t>, 2> kInstallerSides = {
    {{Side::kParent, 60}, {Side::kChild, 1150}}};
constexpr std::uint32_t kPlugsOfInstaller = 15;
// Its last ones make what is installed the next boot's; each of them counts.
constexpr std::uint32_t kCallsOfActivation = 50;
constexpr std::uint32_t kCallsOfLeveller = 6000;
constexpr std::uint32_t kPlugsOfLeveller = 10;
// How often the mesh service writes anew what it knows of an update, about.
constexpr std::uint32_t kSavesOfUpdate = 20;
constexpr std::size_t kMany = 800;

const char* NameOf(int error) {
  for (const auto& [name, number] : kErrors) {
    if (number == error) return name;
  }
  return "-";
}

}  // namespace

std::string Target::Text() const {
  return journey + " " + std::to_string(node) + " " + program +
         (side == Side::kChild ? " child" : " parent");
}

std::string FaultPoint::Text() const {
  if (!condition.empty())
    return target.journey + " under " + condition + " at node " + std::to_string(target.node);
  return target.Text() + " " + kActions.at(static_cast<std::size_t>(action)) + " " + NameOf(error) +
         " " + std::to_string(nth) + (call.empty() ? "" : " " + call);
}

std::vector<std::pair<std::string, int>> Conditions() {
  return {{"full-tmp", 0},  {"full-storage", 0}, {"full-storage", 1}, {"read-only", 0},
          {"read-only", 1}, {"bus-stopped", 0},  {"bus-killed", 0},   {"mesh-off", 0},
          {"offline", 1},   {"hanging", 1}};
}

std::vector<FaultPoint> PointsBesideCalls(bool slow) {
  std::vector<FaultPoint> points;
  for (const char* journey : kJourneys) {
    for (const auto& [condition, node] : Conditions()) {
      if (condition == "hanging" && !slow) continue;
      points.push_back({{journey, node, "", Side::kParent}, Action::kNone, 0, 0, condition});
    }
    for (std::uint32_t nth = 1; nth <= kCallsWithPlug; nth += kPlugEvery) {
      points.push_back({{journey, 0, "webapid-worker", Side::kParent}, Action::kPlug, 0, nth, ""});
    }
  }
  for (const char* journey : kAskingJourneys) {
    for (std::uint32_t nth = 1; nth <= kMostAnswers; ++nth) {
      points.push_back(
          {{journey, 1, "webapid-worker", Side::kParent}, Action::kGarble, 0, nth, ""});
      points.push_back({{journey, 1, "webapid", Side::kParent}, Action::kHalf, 0, nth, ""});
    }
  }
  for (std::uint32_t nth = 1; nth <= kCallsWithPlug; nth += kPlugEvery) {
    points.push_back({{"download", 0, "webapid-worker", Side::kChild}, Action::kPlug, 0, nth, ""});
  }
  for (const char* journey : {"install", "level"}) {
    for (std::uint32_t nth = 1; slow && nth <= kSavesOfUpdate; ++nth) {
      points.push_back(
          {{journey, 0, "meshd", Side::kParent}, Action::kKill, 0, nth, "", "renameat"});
    }
  }
  for (std::uint32_t nth = 1; slow && nth <= kCallsOfLeveller;
       nth += kCallsOfLeveller / kPlugsOfLeveller) {
    points.push_back({{"level", 0, "kalomeshupgrade", Side::kParent}, Action::kPlug, 0, nth, ""});
  }
  for (const auto& [side, calls] : kInstallerSides) {
    for (std::uint32_t nth = 1; nth <= calls; nth += calls / kPlugsOfInstaller) {
      points.push_back({{"install", 0, "kalo-install", side}, Action::kPlug, 0, nth, ""});
    }
    for (std::uint32_t nth = calls - kCallsOfActivation; slow && nth <= calls; ++nth) {
      points.push_back({{"install", 0, "kalo-install", side}, Action::kPlug, 0, nth, ""});
    }
  }
  return points;
}

std::vector<Target> AllTargets() {
  std::vector<Target> targets;
  for (const char* journey : kJourneys) {
    targets.push_back({journey, 0, "webapid-worker", Side::kParent});
    targets.push_back({journey, 0, "meshd", Side::kParent});
  }
  targets.push_back({"download", 0, "webapid-worker", Side::kChild});
  for (const char* journey : {"upload", "download", "clean"}) {
    targets.push_back({journey, 1, "webapid-worker", Side::kParent});
  }
  targets.push_back({"download", 0, "wget", Side::kParent});
  for (const auto& [side, calls] : kInstallerSides) {
    for (const int node : {0, 1}) targets.push_back({"install", node, "kalo-install", side});
  }
  targets.push_back({"install", 0, "meshd", Side::kParent});
  targets.push_back({"install", 0, "webapid-worker", Side::kParent});
  targets.push_back({"install", 1, "webapid-worker", Side::kParent});
  for (const Side side : {Side::kParent, Side::kChild}) {
    targets.push_back({"level", 0, "webapid-worker", side});
  }
  targets.push_back({"level", 0, "kalomeshupgrade", Side::kParent});
  targets.push_back({"level", 0, "kalo-install", Side::kChild});
  return targets;
}

std::vector<std::uint32_t> TellingCalls(std::span<const std::uint16_t> calls) {
  std::vector<std::uint32_t> telling;
  std::set<std::array<std::uint16_t, 3>> seen;
  std::array<std::uint16_t, 3> last{};
  for (std::uint32_t i = 0; i < calls.size(); ++i) {
    last = {last[1], last[2], calls[i]};
    if (seen.insert(last).second || calls.size() < kMany) telling.push_back(i + 1);
  }
  return telling;
}

std::vector<FaultPoint> PointsOf(const Target& target, std::span<const std::uint32_t> calls) {
  std::vector<FaultPoint> points;
  for (const std::uint32_t nth : calls) {
    points.push_back({target, Action::kFail, kErrors[nth % kErrors.size()].second, nth, ""});
    points.push_back({target, Action::kKill, 0, nth, ""});
  }
  return points;
}

FaultPoint ParsePoint(const std::string& text) {
  FaultPoint point;
  std::string side;
  std::string action;
  std::string error;
  std::istringstream words(text);
  if (text.find(" under ") != std::string::npos) {
    words >> point.target.journey >> side >> point.condition >> action >> error >>
        point.target.node;
    point.action = Action::kNone;
    if (!words) throw std::runtime_error("not a fault: " + text);
    return point;
  }
  words >> point.target.journey >> point.target.node >> point.target.program >> side >> action >>
      error >> point.nth;
  if (!words) throw std::runtime_error("not a fault: " + text);
  // A line that the runner printed goes on with the call that was hit, in brackets.
  words >> point.call;
  if (point.call.starts_with('[')) point.call.clear();
  point.target.side = side == "child" ? Side::kChild : Side::kParent;
  const auto* found = std::find(kActions.begin(), kActions.end(), action);
  if (found == kActions.end()) throw std::runtime_error("not a fault: " + text);
  point.action = static_cast<Action>(found - kActions.begin());
  for (const auto& [name, number] : kErrors) {
    if (error == name) point.error = number;
  }
  return point;
}

}  // namespace kalo::faults
