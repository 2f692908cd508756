#pragma once

/// The one place that names the fixed paths which several programs share. They are part of the
/// product's contract (docs/files.md says who writes and who ends each): no prefix, no override.
namespace KALO::paths {

// State of the running system, gone at reboot.
inline constexpr const char* kDownloadProgress = "/tmp/mesh_download";
inline constexpr const char* kUpgradeProgress = "/tmp/mesh_upgrade";
inline constexpr const char* kPatchInformation = "/tmp/mesh_patch";
inline constexpr const char* kPrecheckLock = "/tmp/lock/mesh_precheck";
inline constexpr const char* kPatchLock = "/var/lock/mesh_patch.lock";
inline constexpr const char* kPrecheckScratch = "/tmp/patchtmp";
inline constexpr const char* kPrecheckReport = "/run/customized_reason";
inline constexpr const char* kEqualUpdatePid = "/var/run/meshupdatetoequal.pid";
inline constexpr const char* kBootId = "/run/boot_id";
inline constexpr const char* kRunFolder = "/run/kalo";
inline constexpr const char* kInstallReport = "/run/kalo/install";
inline constexpr const char* kInstallLock = "/run/kalo/install.lock";
inline constexpr const char* kLocalSocket = "/run/kalo/webapid.sock";
inline constexpr const char* kNodeRoundLock = "/run/kalo/node_round.lock";
inline constexpr const char* kTransfers = "/run/kalo/transfers";
inline constexpr const char* kKeyValueLocks = "/run/kalo/kv";
inline constexpr const char* kNotificationLock = "/run/kalo/notifications.lock";
inline constexpr const char* kAutoUpdateLock = "/run/kalo/auto_update.lock";

// Kept over reboots.
inline constexpr const char* kNotifications = "/var/lib/kalo/notifications.json";
inline constexpr const char* kMeshState = "/var/lib/kalo/meshd";
inline constexpr const char* kUpdateHistory = "/var/lib/kalo/meshd/history.json";
inline constexpr const char* kFeedState = "/var/lib/kalo/feed";

// Storage.
inline constexpr const char* kFullStore = "/volume1/@mesh_full";
inline constexpr const char* kNanoStore = "/volume1/@mesh_nano";
inline constexpr const char* kUploads = "/volume1/@upload";
inline constexpr const char* kStagedPatch = "/volume1/@node_patch";
inline constexpr const char* kSlots = "/volume1/@slots";
inline constexpr const char* kFullPatchLocator = "/fullupgr@de.info";

// Configuration.
inline constexpr const char* kConfiguration = "/etc/kaloinfo.conf";
inline constexpr const char* kDefaults = "/etc.defaults/kaloinfo.conf";
inline constexpr const char* kMeshAuthority = "/etc/kalo/mesh/ca.crt";
inline constexpr const char* kNodeCertificate = "/etc/kalo/mesh/node.crt";
inline constexpr const char* kNodeKey = "/etc/kalo/mesh/node.key";
inline constexpr const char* kFeedAuthorities = "/etc.defaults/kalo/feed-ca.crt";
inline constexpr const char* kMeshNodes = "/etc/kalo/mesh/nodes.json";
inline constexpr const char* kPatchKeys = "/etc.defaults/kalo/patch-keys";
inline constexpr const char* kServerConfiguration = "/etc/kalo/webapid.json";
inline constexpr const char* kUsers = "/etc/kalo/users.json";
inline constexpr const char* kUpdaterSettings = "/etc/kalo/sample-updater";

// The installed firmware: the active slot.
inline constexpr const char* kRunningVersion = "/usr/kalo/VERSION";
inline constexpr const char* kModules = "/usr/kalo/webapi";
inline constexpr const char* kPage = "/usr/kalo/web";
inline constexpr const char* kRebootProgram = "/usr/kalo/sbin/reboot";
inline constexpr const char* kFetchProgram = "/usr/kalo/bin/wget";
inline constexpr const char* kNotifyProgram = "/usr/kalo/bin/kaloappnotify";
inline constexpr const char* kInstallerProgram = "/usr/kalo/sbin/kalo-install";
inline constexpr const char* kConfineProgram = "/usr/kalo/sbin/kalo-confine";
inline constexpr const char* kEqualUpdateProgram = "/usr/kalo/sbin/kalomeshupgrade";

}  // namespace KALO::paths
