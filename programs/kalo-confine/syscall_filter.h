#pragma once

namespace kalo::confine {

/// Takes from this process and all that it starts, for good, the system calls by which a program
/// reaches beyond its files and processes: sockets, mounts, namespaces, other processes' memory,
/// keys, tracing, programs in the kernel, clocks. They fail with EPERM.
/// @throws std::system_error when the kernel does not take the filter
void FilterSystemCalls();

}  // namespace kalo::confine
