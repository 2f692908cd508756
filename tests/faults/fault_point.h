#pragma once

#include <cstdint>
#include <random>
#include <span>
#include <string>
#include <vector>

#include "tests/faults/fault_control.h"

namespace kalo::faults {

/// A program of a node whose calls are hit, in one journey.
struct Target {
  std::string journey;
  int node = 0;
  std::string program;
  Side side = Side::kParent;

  [[nodiscard]] std::string Text() const;
  /// Whether the journey installs something.
  [[nodiscard]] bool Installs() const { return journey == "install" || journey == "level"; }
};

/// One fault: the n-th call of a target does not what it should.
struct FaultPoint {
  Target target;
  Action action = Action::kFail;
  int error = 0;
  std::uint32_t nth = 1;
  std::string condition;  ///< instead of a call: how things are all the time (Conditions)
  /// Counts only calls of this name, when it has one: of a program with threads the n-th of a kind
  /// is more often the same than the n-th of all.
  std::string call{};

  /// As "upload 0 webapid-worker child fail EIO 12", which the runner's --only takes back. With
  /// "fsync" behind it, it is the 12th fsync.
  [[nodiscard]] std::string Text() const;
};

/// @return the targets of all journeys.
[[nodiscard]] std::vector<Target> AllTargets();

/// @return the conditions under which journeys are gone, and the node of each.
[[nodiscard]] std::vector<std::pair<std::string, int>> Conditions();

/// @return the points that are no single call: every journey under every condition; answers that
///         are spoiled on their way from a node; the CAP's plug pulled at one in twenty calls of
///         a request, and now and then while something is installed; the mesh service killed at
///         each of its notes of an update.
/// @param slow also those that wait until a node is given up, while nodes come to one version, and
///         at each call of an installation's last step
[[nodiscard]] std::vector<FaultPoint> PointsBesideCalls(bool slow);

/// @param calls what a program called, in turn: of each a number that stands for its name
/// @return which of them are worth a fault, from 1 on: all; of thousands, most of which move bytes,
///         only those that follow upon other calls than every one before them.
[[nodiscard]] std::vector<std::uint32_t> TellingCalls(std::span<const std::uint16_t> calls);

/// @return the points of a target at these calls, failing and killed.
[[nodiscard]] std::vector<FaultPoint> PointsOf(const Target& target,
                                               std::span<const std::uint32_t> calls);

/// @return the point of a text that FaultPoint::Text made.
/// @throws std::runtime_error
[[nodiscard]] FaultPoint ParsePoint(const std::string& text);

}  // namespace kalo::faults
