#pragma once

#include <sys/types.h>

#include <string>

namespace kalo::confine {

/// Where the root is put together, in a mount namespace of its own.
inline constexpr const char* kWorkFolder = "/run/kalo/confine";

/// The folder of the root in which the updater, VERSION and texts lie; empty and writable between
/// BuildRoot and EnterRoot.
inline constexpr const char* kPatchFolder = "/run/kalo/confine/tmp/patchtmp";

/// Puts a root together at kWorkFolder: the system's programs and libraries, few devices, what a
/// program needs of /etc, all read-only, and an empty /tmp and /run of its own in memory. Nothing
/// else of the router is in it: no key, no user, no storage.
/// @param owner who may write to /run
/// @throws std::system_error
void BuildRoot(uid_t owner);

/// Makes that the root of this mount namespace. The old one is gone.
/// @throws std::system_error
void EnterRoot();

}  // namespace kalo::confine
