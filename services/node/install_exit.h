#pragma once

namespace kalo::node {

/// How the program kalo-install ends.
enum InstallExit : int {
  kOk = 0,
  kFailed = 1,
  kBusy = 3,  ///< an installation is running, or something else that it must not disturb
};

}  // namespace kalo::node
