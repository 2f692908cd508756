#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "services/meshd/node_api.h"
#include "services/meshd/node_list.h"

namespace kalo::meshd {

inline constexpr const char* kOldVersion = "VXM 1.4.0-76000";
inline constexpr const char* kNewVersion = "VXM 1.4.0-76010";

/// A node that exists in the test only. The test sets what it does; any thread may call it.
class FakeNode {
 public:
  explicit FakeNode(std::uint32_t id) {
    report_.node_id = id;
    report_.name = "node" + std::to_string(id);
    report_.unique = id == 0 ? "kalo_cap1" : "kalo_sat1";
    report_.version = kOldVersion;
    report_.build = 76000;
    report_.boot_id = "boot-0";
  }

  void Stage(const std::string& version) {
    const std::lock_guard guard(mutex_);
    report_.staged_version = version;
  }
  void SetReachable(bool reachable) {
    const std::lock_guard guard(mutex_);
    reachable_ = reachable;
  }
  void Refuse(std::int32_t error_number) {
    const std::lock_guard guard(mutex_);
    refuse_ = error_number;
  }
  void Report(const std::string& step, std::int32_t percent = 0) {
    const std::lock_guard guard(mutex_);
    report_.install.step = step;
    report_.install.percent = percent;
  }
  void FailInstall(std::int32_t number, const std::string& message) {
    const std::lock_guard guard(mutex_);
    report_.install = {"failed", 0, number, "cannot write", message};
  }
  /// A new boot: the install report lies in a folder that starts empty.
  void Boot(const std::string& version) {
    const std::lock_guard guard(mutex_);
    report_.version = version;
    report_.boot_id = "boot-" + std::to_string(++boots_);
    report_.install = {};
    if (version == report_.staged_version) report_.staged_version.clear();
  }
  /// It answers nobody as long as the caller has this.
  [[nodiscard]] std::unique_lock<std::mutex> Busy() const { return std::unique_lock(mutex_); }
  [[nodiscard]] int Starts() const {
    const std::lock_guard guard(mutex_);
    return starts_;
  }

  [[nodiscard]] std::optional<NodeReport> Info() const {
    const std::lock_guard guard(mutex_);
    return reachable_ ? std::optional(report_) : std::nullopt;
  }
  [[nodiscard]] StartAnswer Start() {
    const std::lock_guard guard(mutex_);
    if (!reachable_) return {};
    ++starts_;
    if (refuse_ != 0) return {StartOutcome::kRefused, refuse_};
    return {StartOutcome::kAccepted, 0};
  }

 private:
  mutable std::mutex mutex_;
  NodeReport report_;
  bool reachable_ = true;
  std::int32_t refuse_ = 0;
  int boots_ = 0;
  int starts_ = 0;
};

class FakeNodeApi final : public NodeApi {
 public:
  explicit FakeNodeApi(FakeNode& node) : node_(node) {}
  std::optional<NodeReport> Info() override { return node_.Info(); }
  StartAnswer Start() override { return node_.Start(); }

 private:
  FakeNode& node_;
};

/// The mesh of the tests: 1 and 2 hang on the CAP, 3 on node 1.
[[nodiscard]] inline std::vector<MeshNode> FourNodes() {
  return {{0, "127.0.0.1", 0, 0, true},
          {1, "127.0.0.2", 0, 1, true},
          {2, "127.0.0.3", 0, 1, false},
          {3, "127.0.0.4", 1, 2, false}};
}

}  // namespace kalo::meshd
