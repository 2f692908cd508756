#pragma once

#include <filesystem>

namespace kalo::box {

/// The folder that keeps the key pair by which a mesh's patches are signed.
class PatchKeys {
 public:
  explicit PatchKeys(std::filesystem::path folder) : folder_(std::move(folder)) {}

  /// Makes the pair when the folder has none.
  /// @throws std::runtime_error
  void MakeWhenMissing() const;
  [[nodiscard]] std::filesystem::path Secret() const { return folder_ / "patch.key"; }
  [[nodiscard]] std::filesystem::path Public() const { return folder_ / "patch.pem"; }

 private:
  std::filesystem::path folder_;
};

}  // namespace kalo::box
