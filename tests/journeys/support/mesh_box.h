#pragma once

#include <json/value.h>
#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tests/journeys/support/program.h"

namespace kalo::journeys {

/// What the command line said.
struct Answer {
  int status = -1;   ///< exit status
  Json::Value data;  ///< what it printed; of a failure what it told, with "code"
  std::string text;  ///< all of its words, for messages

  [[nodiscard]] int Code() const { return data["code"].isInt() ? data["code"].asInt() : 0; }
};

/// A whole mesh of four nodes in a state folder of its own, which ends with this object. A user is
/// signed in. The folder stays for a look at logs until the next mesh of the same name.
class MeshBox {
 public:
  /// Starts the mesh and waits until it answers, is in sync, and a user is signed in.
  /// @throws std::runtime_error
  /// @param options further ones of "kalo-box up"
  explicit MeshBox(const std::string& name, const std::vector<std::string>& options = {});
  MeshBox(const MeshBox&) = delete;
  MeshBox& operator=(const MeshBox&) = delete;
  ~MeshBox();

  /// Runs the mesh owner's command line with "--json".
  [[nodiscard]] Answer Cli(const std::vector<std::string>& words) const;
  /// Hands in patches, "kalo_m1=kalo_m1-76010" and so on (see Patch).
  [[nodiscard]] Answer Upload(const std::vector<std::string>& patches) const;
  /// Hands in the next version for both models, which succeeds.
  void UploadNext() const;

  /// Publishes patches ("kalo_m1-76010" and so on) in the maker's update feed.
  /// @param options further ones of "kalo-patch publish"
  void Publish(const std::vector<std::string>& patches,
               const std::vector<std::string>& options = {}) const;
  /// @return where the feed's files lie on this machine.
  [[nodiscard]] std::filesystem::path Feed() const { return state_ / "feed"; }

  /// Runs a command inside a node.
  [[nodiscard]] Outcome Exec(int node, const std::vector<std::string>& argv) const;
  /// Makes something happen to a node.
  void Event(int node, const std::string& word) const;

  /// @return what the mesh says of a node; null when it says nothing.
  [[nodiscard]] Json::Value Node(int id) const;
  /// @return whether the mesh came to know, before the deadline, that this version lies on the
  /// node.
  [[nodiscard]] bool WaitForStaged(int node, const std::string& version) const;
  /// @return the version that really runs there, read from the node itself.
  [[nodiscard]] std::string RunningVersion(int node) const;
  /// @return the status of version 2; null when there is none now.
  [[nodiscard]] Json::Value Status() const;
  /// @return whether the status word became this before the deadline.
  [[nodiscard]] bool WaitForStatus(const std::string& word) const;
  /// @return whether the CAP's system log has this text.
  [[nodiscard]] bool LogHas(const std::string& text) const;

  /// The longest that anything here may take.
  static constexpr std::chrono::seconds kDeadline{120};

 private:
  void End();
  void Start(const std::vector<std::string>& options);
  void Login();
  void ExpectCleanConsoles() const;
  [[nodiscard]] std::string Box() const;

  std::filesystem::path state_;
  pid_t pid_ = 0;
};

/// Versions of the patches that all journeys share.
inline constexpr const char* kFirst = "VXM 1.4.0-76000";
inline constexpr const char* kNext = "VXM 1.4.0-76010";

/// Reads a key=value file as these tests find it: without escapes, which none of theirs needs.
/// @return the key's value; empty when it has none.
[[nodiscard]] std::string ValueIn(const std::string& text, const std::string& key);

/// @return the word for the command line: a model and the file of its patch.
[[nodiscard]] std::string Patch(const std::string& model, int build);

}  // namespace kalo::journeys
