#pragma once

#include <array>

namespace kalo::hostile {

/// A row that the router serves.
struct Row {
  const char* api;
  int version;
  const char* method;
};

/// Every row of the router's modules; a test compares them with the modules' descriptions.
inline constexpr std::array<Row, 29> kRows = {{
    {"KALO.Mesh.Upgrade", 1, "start"},
    {"KALO.Mesh.Upgrade", 1, "status"},
    {"KALO.Mesh.Upgrade", 2, "status"},
    {"KALO.Mesh.Upgrade", 1, "progress"},
    {"KALO.Mesh.Upgrade", 2, "progress"},
    {"KALO.Mesh.Upgrade", 1, "precheck"},
    {"KALO.Mesh.Upgrade.Equal", 1, "start"},
    {"KALO.Mesh.Upgrade.Equal", 1, "cancel"},
    {"KALO.Mesh.Upgrade.Patch", 1, "check"},
    {"KALO.Mesh.Upgrade.Patch", 2, "check"},
    {"KALO.Mesh.Upgrade.Patch", 1, "clean"},
    {"KALO.Mesh.Upgrade.Patch", 1, "upload"},
    {"KALO.Mesh.Upgrade.Patch.Check", 1, "equal"},
    {"KALO.Mesh.Upgrade.Download", 1, "start"},
    {"KALO.Mesh.Upgrade.Download", 1, "cancel"},
    {"KALO.Mesh.Upgrade.Download", 1, "progress"},
    {"KALO.Mesh.Upgrade.Download", 2, "progress"},
    {"KALO.Core.Mesh", 1, "nodes"},
    {"KALO.Core.Mesh", 1, "events"},
    {"KALO.Core.Mesh", 1, "history"},
    {"KALO.Core.Mesh", 1, "releases"},
    {"KALO.Core.Mesh", 1, "diagnosis"},
    {"KALO.Core.Notification", 1, "list"},
    {"KALO.Core.Notification", 1, "dismiss"},
    {"KALO.Core.Upgrade", 1, "info"},
    {"KALO.Core.Upgrade", 1, "progress"},
    {"KALO.Core.Upgrade", 1, "start"},
    {"KALO.Core.Upgrade.Patch", 1, "upload"},
    {"KALO.Core.Upgrade.Patch", 1, "clean"},
}};

/// Parameters that only the server may set: where it stored an uploaded file; and other spellings
/// of them that somebody might take for the same.
inline constexpr std::array<const char*, 5> kFileParameters = {
    "kalo_m1_file_tmp", "patch_file_tmp", "kalo_m1%5ffile_tmp", "patch%5Ffile_tmp",
    "%70atch_file_tmp"};

/// Here the recording module notes which request reached which row's entry function, a line of JSON
/// each: {"row":…,"mark":…,"files":[…]}.
inline constexpr const char* kReached = "/run/hostile.reached";

}  // namespace kalo::hostile
