#pragma once

#include <string>
#include <vector>

namespace KALO::MESH::SDK::Upgrade {

/// What the regular update check is asked with. Fixed-size fields, always NUL-terminated.
struct tag_hbxinfo {
  char major[8];    ///< "5"
  char minor[8];    ///< "2"
  char build[16];   ///< running build number, decimal
  char unique[64];  ///< hardware model
};

/// What it offers.
struct tag_UPDATE_INFO {
  std::string type;     ///< update kind word: "hbx" or "smallupdate"
  std::string version;  ///< offered version text
};

/// The maker's regular update check.
class SystemUpdate {
 public:
  /// @param is_auto the check was started automatically, not by a user
  explicit SystemUpdate(bool is_auto = false);

  /// Asks for one model and build.
  /// @param found         receives whether something is offered; it may be no newer than what runs
  /// @param update        receives the offer, whose version is one that GetBuildNum reads
  /// @param small_updates whether a small update may be offered: old builds cannot take one
  void CheckNewUpdateByHBXInfo(bool& found, tag_UPDATE_INFO& update, const tag_hbxinfo& info,
                               bool small_updates);

 private:
  bool is_auto_;
};

class NanoJson {
 public:
  /// @return the number of the newest small update for a model at a build, 0 when there is none.
  static int CheckNanoUpdate(const std::string& unique, int build);
};

/// The chain of versions that a model may take from one version to another.
class Upgrade {
 public:
  /// @return the stops from current to target, the target last; empty when current is the target.
  /// @throws std::exception when no chain is known.
  std::vector<std::string> GetUpgradePath(const std::string& target, const std::string& current,
                                          const std::string& unique);
};

}  // namespace KALO::MESH::SDK::Upgrade
