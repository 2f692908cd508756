#pragma once

#include <filesystem>
#include <string>

namespace kalo::box {

/// Where things lie in the state folder of a mesh. Nothing of a mesh lies elsewhere.
class Layout {
 public:
  explicit Layout(std::filesystem::path state) : state_(std::move(state)) {}

  [[nodiscard]] const std::filesystem::path& State() const { return state_; }
  /// Held while a mesh runs here; tells who runs it.
  [[nodiscard]] std::filesystem::path Lock() const { return state_ / "lock"; }
  /// What a client needs, written when the mesh answers.
  [[nodiscard]] std::filesystem::path Description() const { return state_ / "box.json"; }
  /// The authority of the administrators' certificate, for clients.
  [[nodiscard]] std::filesystem::path ClientCa() const { return state_ / "ca.crt"; }
  [[nodiscard]] std::filesystem::path Log() const { return state_ / "box.log"; }
  /// The trees that nodes start with, one for each model.
  [[nodiscard]] std::filesystem::path Firmware() const { return state_ / "firmware"; }
  /// The VERSION of a node that starts with another one than its model's tree; else none.
  [[nodiscard]] std::filesystem::path FirstVersion(int id) const {
    return Firmware() / ("node" + std::to_string(id) + ".VERSION");
  }
  /// What the maker's update feed serves; kalo-patch publish fills it.
  [[nodiscard]] std::filesystem::path Feed() const { return state_ / "feed"; }
  /// The feed server's certificate and key.
  [[nodiscard]] std::filesystem::path FeedTls() const { return state_ / "feed-tls"; }
  /// Root of the box in which the launcher runs.
  [[nodiscard]] std::filesystem::path LauncherRoot() const { return state_ / "launcher"; }
  [[nodiscard]] std::filesystem::path LauncherControl() const { return state_ / "control"; }
  [[nodiscard]] std::filesystem::path Nodes() const { return state_ / "nodes"; }
  /// Root of a node's box.
  [[nodiscard]] std::filesystem::path Node(int id) const { return Nodes() / std::to_string(id); }
  /// Shown to the node as /box: what the box and the node's first process share.
  [[nodiscard]] std::filesystem::path NodeBox(int id) const { return Node(id) / "box"; }
  [[nodiscard]] std::filesystem::path NodeControl(int id) const { return NodeBox(id) / "control"; }
  /// The boot id of the node's last boot that proved healthy.
  [[nodiscard]] std::filesystem::path NodeHealth(int id) const { return NodeBox(id) / "health"; }
  /// What the node's programs wrote to their standard output and error.
  [[nodiscard]] std::filesystem::path NodeConsole(int id) const { return NodeBox(id) / "console"; }

 private:
  std::filesystem::path state_;
};

/// The shared folder as the node sees it.
inline constexpr const char* kBoxFolder = "/box";
inline constexpr const char* kBoxControl = "/box/control";
inline constexpr const char* kBoxHealth = "/box/health";

/// Exit status of a node's first process that asks to be started again.
inline constexpr int kStartAgain = 77;

}  // namespace kalo::box
