// Makes one thing after another go wrong in a running mesh, and looks whether it bears it.
#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <functional>
#include <iostream>
#include <numeric>
#include <optional>
#include <random>

#include "tests/faults/condition.h"
#include "tests/faults/fault_mesh.h"
#include "tests/faults/journey.h"
#include "tests/faults/plug.h"
#include "tests/faults/rules.h"
#include "tests/support/wait.h"

namespace kalo::faults {
namespace {

struct Options {
  std::string name = "faults";
  unsigned seed = 1;
  std::size_t count = 0;  ///< so many of all points, drawn; 0: all
  std::size_t part = 0;
  std::size_t parts = 1;
  std::vector<std::string> only;
  std::string target;  ///< only this one's points
  bool until_lost = false;
  bool verbose = false;
};

// A run of many points of all kinds in which the faults do not come about proves nothing.
constexpr std::size_t kManyPoints = 100;
constexpr double kMustBeInjected = 0.8;

// What a fault costs in time: the mesh service's restart, or that of both nodes and more.
double ShareOf(const Target& target) {
  if (target.Installs()) return 1.0 / 40;
  return target.program == "meshd" ? 1.0 / 3 : 1;
}

// How many calls a program makes while something is installed, at least about.
std::size_t UsualCalls(const Target& target) {
  if (target.side == Side::kParent) return 100;
  return target.program == "kalo-install" ? 1150 : 20;
}

struct Tally {
  int injected = 0;
  int passed = 0;
  int lost = 0;
  int not_reached = 0;  ///< this time the program made fewer calls
};

class Runner {
 public:
  explicit Runner(const Options& options) : options_(options) {}

  [[nodiscard]] std::vector<FaultPoint> Points();
  void Run(const FaultPoint& point);
  [[nodiscard]] const Tally& Result() const { return tally_; }

 private:
  void BringMesh(const std::string& journey);
  [[nodiscard]] std::vector<FaultPoint> PartOf(std::vector<FaultPoint> points) const;
  [[nodiscard]] std::vector<std::uint32_t> CallsOf(const Target& target);
  [[nodiscard]] Outcome GoWithFault(const FaultPoint& point);
  void RunAgain(const FaultPoint& point, Rules& rules);
  void Tell(const FaultPoint& point, const std::string& hit, const Outcome& outcome,
            const Rules& rules, double seconds);

  const Options& options_;
  std::unique_ptr<FaultMesh> mesh_;
  BaseLine base_;  ///< of this mesh
  Tally tally_;
  bool is_broken_ = false;  ///< the next point gets a new mesh; this one's logs are kept till then
};

// A mesh that the journey can begin in. One that is at one version has nothing more to level.
void Runner::BringMesh(const std::string& journey) {
  const MeshKind kind = KindFor(journey);
  if (mesh_ != nullptr && !is_broken_ && mesh_->Kind() == kind && kind != MeshKind::kLagging)
    return;
  mesh_.reset();
  mesh_ = std::make_unique<FaultMesh>(options_.name, kind);
  base_ = ReadBaseLine(*mesh_);
  is_broken_ = false;
}

// Goes the journey's way without a fault. That is an installation as well: for a few drawn points a
// usual number of calls does, of which some are not reached.
std::vector<std::uint32_t> Runner::CallsOf(const Target& target) {
  if (target.Installs() && options_.count != 0) {
    std::vector<std::uint32_t> usual(UsualCalls(target));
    std::iota(usual.begin(), usual.end(), 1);
    return usual;
  }
  BringMesh(target.journey);
  const std::string trouble = Prepare(*mesh_, target.journey);
  if (!trouble.empty()) throw std::runtime_error(trouble);
  mesh_->Arm({target, Action::kNone, 0, 0, ""});
  const Outcome outcome = Go(*mesh_, target.journey);
  const std::vector<std::uint16_t> calls = mesh_->Disarm();
  if (!outcome.success || !outcome.broken.empty()) {
    throw std::runtime_error(target.Text() + " fails without a fault: " + outcome.words +
                             outcome.broken);
  }
  std::vector<std::uint32_t> telling = TellingCalls(calls);
  std::cout << target.Text() << ": " << calls.size() << " calls, " << telling.size()
            << " of them worth a fault\n";
  return telling;
}

std::vector<FaultPoint> Runner::Points() {
  std::vector<FaultPoint> points;
  if (!options_.only.empty()) {
    for (const std::string& text : options_.only) points.push_back(ParsePoint(text));
    return points;
  }
  // Of what is drawn each target has the same share, however many calls it makes, and a slow one
  // less.
  const std::vector<Target> targets = AllTargets();
  double shares = 1;  // what is no call has one as well
  for (const Target& target : targets) shares += ShareOf(target);
  if (!options_.target.empty()) shares = 1;
  std::mt19937 random(options_.seed);
  const auto draw = [&](const std::vector<FaultPoint>& all, double share) {
    const double part =
        options_.count == 0 ? 1e9 : share / shares * static_cast<double>(options_.count);
    std::sample(all.begin(), all.end(), std::back_inserter(points), std::lround(part), random);
  };
  for (const Target& target : targets) {
    if (!options_.target.empty() && target.Text() != options_.target) continue;
    draw(PointsOf(target, CallsOf(target)), ShareOf(target));
  }
  if (!options_.target.empty() && points.empty()) {
    throw std::runtime_error("there is no target \"" + options_.target + "\"");
  }
  if (options_.target.empty()) draw(PointsBesideCalls(options_.count == 0), 1);
  return PartOf(std::move(points));
}

// The processes that share all points count calls each for itself, and not alike: so a point's own
// text says whose it is. What is drawn need not meet, and takes turns, so that each has the same
// work. A mesh is made once for all that it is good for: those of one kind stay together.
std::vector<FaultPoint> Runner::PartOf(std::vector<FaultPoint> points) const {
  std::stable_sort(points.begin(), points.end(), [](const FaultPoint& a, const FaultPoint& b) {
    return KindFor(a.target.journey) < KindFor(b.target.journey);
  });
  std::size_t turn = 0;
  std::erase_if(points, [&](const FaultPoint& point) {
    const bool is_drawn = options_.count != 0;
    const std::size_t whose = is_drawn ? turn++ : std::hash<std::string>()(point.Text());
    return whose % options_.parts != options_.part;
  });
  return points;
}

// After whatever happened everything works, and can be taken back.
void Runner::RunAgain(const FaultPoint& point, Rules& rules) {
  if (!mesh_->WaitUntilReady()) return rules.Break("not in sync again: " + mesh_->StatusWord());
  const Outcome again = Go(*mesh_, point.target.journey);
  if (!again.broken.empty()) rules.Break("once more: " + again.broken);
  if (!again.success) rules.Break("once more: " + again.words);
  rules.CheckBaseLine();
}

// The journey with its fault. A CAP that restarts gives no answer; the next one does.
Outcome Runner::GoWithFault(const FaultPoint& point) {
  const bool plug = point.action == Action::kPlug;
  const Condition condition(*mesh_, point.condition, point.target.node);
  mesh_->Arm(point);
  std::optional<Plug> hand;
  if (plug) hand.emplace(*mesh_);
  Outcome outcome = Go(*mesh_, point.target.journey);
  hand.reset();
  if (plug && !mesh_->WaitUntilReady()) outcome.broken = "does not come back";
  if (plug && outcome.broken.find("got no answer") != std::string::npos) outcome.broken.clear();
  return outcome;
}

void Runner::Run(const FaultPoint& point) {
  const auto begin = std::chrono::steady_clock::now();
  BringMesh(point.target.journey);
  const std::string trouble = Prepare(*mesh_, point.target.journey);
  if (!trouble.empty()) throw std::runtime_error(trouble);
  Rules rules(*mesh_, base_);
  (void)mesh_->LatePolls();
  const Outcome outcome = GoWithFault(point);
  if (!outcome.broken.empty()) rules.Break(outcome.broken);
  // Nodes that were switched off or stood still are asked again by and by.
  const bool restarted =
      point.action == Action::kPlug || point.condition == "offline" || point.target.Installs();
  if (!point.condition.empty() && !mesh_->WaitUntilReady()) rules.Break("does not come back");
  rules.CheckAfterFault(restarted);
  mesh_->Disarm();
  const std::string hit = point.condition.empty() ? mesh_->HitCall() : point.condition;
  const bool is_ready = mesh_->WaitUntilReady();
  const std::string missing = Prepare(*mesh_, point.target.journey);
  if (!is_ready || !missing.empty()) rules.Break("once more: " + missing);
  RunAgain(point, rules);
  // A CAP that restarts answers nobody meanwhile.
  const std::string late = mesh_->LatePolls();
  if (!late.empty() && !restarted) rules.Break("answered too late: " + late);
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
  Tell(point, hit, outcome, rules, took.count());
}

void Runner::Tell(const FaultPoint& point, const std::string& hit, const Outcome& outcome,
                  const Rules& rules, double seconds) {
  const bool passed = rules.Broken().empty();
  // What earlier faults left adds up, and may show where none came about.
  if (!passed) ++tally_.lost;
  ++(hit.empty() ? tally_.not_reached : tally_.injected);
  if (passed && !hit.empty()) ++tally_.passed;
  if (passed && !options_.verbose) return;
  std::cout << (passed ? "passed: " : "LOST: ") << point.Text() << " [" << hit << "] " << seconds
            << " s  " << outcome.words << "\n";
  for (const std::string& words : rules.Broken()) std::cout << "    " << words << "\n";
  // Each build of the mesh makes calls of its own, so the point counts with this program only.
  if (!passed) {
    std::cout << "    again: " << std::filesystem::read_symlink("/proc/self/exe").string()
              << " --verbose --only \"" << point.Text() << "\"\n";
  }
  std::cout << std::flush;
  is_broken_ = !passed;
}

int RunAll(const Options& options) {
  Runner runner(options);
  const std::vector<FaultPoint> points = runner.Points();
  const Tally& tally = runner.Result();
  std::cout << points.size() << " points to try\n" << std::flush;
  for (const FaultPoint& point : points) {
    if (options.until_lost && tally.lost > 0) break;
    runner.Run(point);
  }
  std::cout << tally.injected << " faults injected, " << tally.passed << " passed, " << tally.lost
            << " lost; " << tally.not_reached << " not reached (seed " << options.seed << ")\n";
  if (options.only.empty() && options.target.empty() && points.size() >= kManyPoints &&
      tally.injected < kMustBeInjected * static_cast<double>(points.size())) {
    throw std::runtime_error("too few faults came about");
  }
  return tally.lost == 0 ? 0 : 1;
}

int Main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  Options options;
  CLI::App app(
      "Makes one thing after another go wrong in a running mesh, and looks whether it bears "
      "it");
  app.add_option("--name", options.name, "Name of the mesh's folder");
  app.add_option("--seed", options.seed, "What the drawn points depend on");
  app.add_option("--count", options.count, "Draw so many points of all; 0: run all");
  app.add_option("--part", options.part, "Which part of the points, from 0 on");
  app.add_option("--parts", options.parts, "How many parts there are");
  app.add_option("--only", options.only, "Run these points, as the runner prints them");
  app.add_option("--target", options.target, "Only this target's points, as the runner lists it");
  app.add_flag("--until-lost", options.until_lost, "End when something was lost");
  app.add_flag("--verbose", options.verbose, "Tell of every point");
  CLI11_PARSE(app, argc, argv);
  return RunAll(options);
}

}  // namespace
}  // namespace kalo::faults

int main(int argc, char** argv) {
  try {
    return kalo::faults::Main(argc, argv);
  } catch (const std::exception& trouble) {
    std::cerr << "fault-runner: " << trouble.what() << "\n";
    return 2;
  }
}
