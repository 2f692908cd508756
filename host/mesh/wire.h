#pragma once

#include <cstdint>

/// The mesh service's face on the system bus: what the client library and the service must agree
/// on. services/meshd/kalo.Mesh1.xml says the same for readers of D-Bus.
namespace kalo::mesh {

inline constexpr const char* kServiceName = "kalo.Mesh1";
inline constexpr const char* kObjectPath = "/kalo/Mesh1";
inline constexpr const char* kInterface = "kalo.Mesh1";

/// Methods take no argument.
namespace method {
inline constexpr const char* kGetNodeInfos = "GetNodeInfos";
inline constexpr const char* kGetRepeaterAccessInfos = "GetRepeaterAccessInfos";
inline constexpr const char* kGetMeshSystemStatus = "GetMeshSystemStatus";
inline constexpr const char* kStartSystemUpdate = "StartSystemUpdate";
inline constexpr const char* kGetSystemUpdateProgress = "GetSystemUpdateProgress";
inline constexpr const char* kGetSystemUpdateProgressV2 = "GetSystemUpdateProgressV2";
inline constexpr const char* kGetNodes = "GetNodes";
}  // namespace method

/// Types of the replies. Each begins with the 16-bit code, except StartSystemUpdate's, which is a
/// status whose low 16 bits are the code.
namespace signature {
/// code, node id -> (name, unique, address, full version, build, nano, boot id, staged version)
inline constexpr const char* kGetNodeInfos = "qa{u(ssssiiss)}";
/// code, node id -> (parent, hops, wired)
inline constexpr const char* kGetRepeaterAccessInfos = "qa{u(uub)}";
/// code, syncing, (node id, offline)
inline constexpr const char* kGetMeshSystemStatus = "qba(ub)";
inline constexpr const char* kStartSystemUpdate = "u";
/// code, version, step, percent, error number, description, message
inline constexpr const char* kGetSystemUpdateProgress = "qssiiss";
/// code, version, step, percent, total percentage, error number, description, message
inline constexpr const char* kGetSystemUpdateProgressV2 = "qssiiiss";
/// code, update running, (id, name, model, version, role, online, boot id, step, percent, staged
/// version, error)
inline constexpr const char* kGetNodes = "qba(ussssbssiss)";
}  // namespace signature

/// What stands in the code of a result.
enum class MeshCode : std::uint16_t {
  kOk = 0,
  // The service's own refusals.
  kUpdateRunning = 1,
  kNothingStaged = 2,
  kCannotSaveState = 3,
  kPatchesIncomplete = 4,
  // What the client library found instead of an answer.
  kServiceMissing = 101,
  kTimedOut = 102,
  kErrorReply = 103,
  kMalformedReply = 104,
  kConnectionLost = 105,
};

/// Numbers in the error triple of an update's progress where the node itself gave none.
enum class UpdateError : std::int32_t {
  kNone = 0,
  kInstallFailed = 5240,
  kFellBack = 5241,
  kDeadline = 5242,
  kOffline = 5243,
  kStartRefused = 5244,
};

}  // namespace kalo::mesh
