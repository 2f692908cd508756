#pragma once

#include <array>
#include <atomic>
#include <cstdint>

namespace kalo::faults {

/// What a fault does to the call that it hits.
enum class Action : std::uint32_t {
  kNone,    ///< only counts
  kFail,    ///< the call does nothing and fails with `error`
  kKill,    ///< the process is killed in front of the call
  kPlug,    ///< the process stops in front of the call, and the runner pulls its node's plug
  kGarble,  ///< sends other bytes; only sending calls count
  kHalf     ///< sends half of it and closes the connection; only sending calls count
};

/// Which side of a fork is hit.
enum class Side : std::uint32_t { kParent, kChild };

/// Calls whose names are kept.
inline constexpr std::uint32_t kKeptCalls = std::uint32_t{1} << 18;

/// What the runner shares with every process of a node: where the next fault shall happen, and what
/// became of it. It lies in the node's /etc, which is a folder of the runner's machine.
struct FaultControl {
  std::atomic<std::uint32_t> armed;
  std::array<char, 24> program;  ///< name of the program that is hit, as the kernel shortens it
  Side side;
  Action action;
  std::int32_t error;                ///< errno of a failing call
  std::uint32_t nth;                 ///< which of its calls is hit, from 1 on
  std::array<char, 32> only;         ///< name of the calls that count; empty: all
  std::atomic<std::uint32_t> count;  ///< calls so far
  std::atomic<std::uint32_t> fired;
  std::array<char, 32> call;                    ///< name of the call that was hit
  std::array<std::uint16_t, kKeptCalls> names;  ///< of each call a number made of its name
};

static_assert(std::atomic<std::uint32_t>::is_always_lock_free);

inline constexpr const char* kControlPath = "/etc/fault-control";
/// Name that a forked child bears from its birth, so that the runner can tell it from its parent.
inline constexpr const char* kChildName = "forked-child";

}  // namespace kalo::faults
