#pragma once

namespace kalo {

/// The TLS library cannot do without randomness: when the making of a key found none, it is out of
/// order for the rest of the process. A program that runs for long should then end and be started
/// anew, instead of taking all others for unreachable.
/// @return whether the library still works in this process, or else a line in the log; it is also
///         false when a thread that asks for the first time finds no randomness.
[[nodiscard]] bool IsTlsUsable();

}  // namespace kalo
