#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace kalo::cli {

/// What every command takes.
struct CommonOptions {
  std::string session_file;
  bool local = false;  ///< as root on this router, without signing in
  bool json = false;
  std::chrono::seconds connect_deadline{10};
};

struct LoginOptions {
  std::string server;
  std::string ca_file;
  std::string user = "admin";
  std::string password_file;  ///< empty: asked for, or read from standard input
};

struct StatusOptions {
  bool version1 = false;
  bool skip_offline = false;
  bool skip_mesh_state = false;
};

struct WatchOptions {
  int count = 0;  ///< looks, a second apart; 0: until it is interrupted
};

struct DumpOptions {
  std::string out;  ///< empty: standard output
};

struct ProgressOptions {
  bool version1 = false;
  bool download = false;
};

struct CheckOptions {
  bool is_auto = false;
};

struct NotificationsOptions {
  int dismiss = 0;  ///< id; 0: list them
};

struct DownloadOptions {
  bool promotion = false;
};

struct PrecheckOptions {
  std::string language;  ///< "enu"; empty: the user's own
  bool accepts_licence = false;
};

struct EqualOptions {
  std::vector<int> nodes;  ///< ids; empty: all
  std::chrono::seconds deadline{900};
};

struct UpgradeOptions {
  bool yes = false;  ///< without asking
  bool accepts_licence = false;
  bool is_auto = false;  ///< by a timer, as root on the main router
  std::chrono::seconds deadline{900};
};

struct StartOptions {
  bool wait = false;
  bool is_auto = false;  ///< the caller is the automatic update
  std::chrono::seconds deadline{300};
};

// Each runs one command and returns the exit status; each may throw a Failure.
int RunLogin(const CommonOptions& common, const LoginOptions& options);
int RunLogout(const CommonOptions& common);
int RunStatus(const CommonOptions& common, const StatusOptions& options);
int RunProgress(const CommonOptions& common, const ProgressOptions& options);
int RunWatch(const CommonOptions& common, const WatchOptions& options);
int RunHistory(const CommonOptions& common);
int RunDoctor(const CommonOptions& common);
int RunDump(const CommonOptions& common, const DumpOptions& options);
int RunNodes(const CommonOptions& common);
int RunCheck(const CommonOptions& common, const CheckOptions& options);
int RunDownload(const CommonOptions& common, const DownloadOptions& options);
int RunCancel(const CommonOptions& common);
int RunClean(const CommonOptions& common);
int RunPrecheck(const CommonOptions& common, const PrecheckOptions& options);
int RunEqualCheck(const CommonOptions& common, const EqualOptions& options);
int RunEqualStart(const CommonOptions& common, const EqualOptions& options);
int RunEqualCancel(const CommonOptions& common);
int RunUpgrade(const CommonOptions& common, const UpgradeOptions& options);
int RunNotifications(const CommonOptions& common, const NotificationsOptions& options);
/// @param patches "MODEL=FILE" each
int RunUpload(const CommonOptions& common, const std::vector<std::string>& patches);
int RunStart(const CommonOptions& common, const StartOptions& options);

}  // namespace kalo::cli
