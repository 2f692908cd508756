#pragma once

#include <filesystem>
#include <string>

/// A node's firmware lives in two slots, folders "a" and "b" of "/volume1/@slots"; the link
/// "current" names the one that the next boot shows as /usr/kalo. An installation writes the other
/// slot, then flips the link for a trial: the first boot of a trial must be confirmed, else the
/// boot after it shows the previous slot again. The trial's state is one small file, written whole,
/// and written before the link is flipped, so that every moment at which the power may go leaves a
/// slot that boots.
namespace kalo::slots {

enum class Trial {
  kNone,    ///< nothing is being tried
  kArmed,   ///< the link is flipped, or about to be; the new slot was not booted yet
  kBooted,  ///< the new slot was booted once and waits to be confirmed
  kFailed,  ///< the previous slot is back; `failure` says why
};

struct State {
  Trial trial = Trial::kNone;
  std::string previous;  ///< the slot to go back to: "a" or "b"
  std::string version;   ///< display form of what is being tried
  std::string failure;   ///< why the trial failed, for people
};

/// @return the recorded state; a missing or damaged file means that nothing is being tried.
/// @throws std::system_error when it cannot be read now: a trial may be under way all the same.
[[nodiscard]] State ReadState();

/// Decides which slot this boot shows, and counts the boot against a running trial. Called once, as
/// early as possible in a boot, by whoever shows the slot.
/// @throws std::runtime_error when no slot holds a firmware, std::system_error when the decision
///         cannot be recorded.
[[nodiscard]] std::filesystem::path ChooseAtBoot();

/// @throws std::runtime_error when the link names no slot.
[[nodiscard]] std::filesystem::path ActiveSlot();
/// @return the slot that the link does not name; it may not exist yet. GetUse tells whether it may
///         be written.
[[nodiscard]] std::filesystem::path InactiveSlot();

/// Removes what lies in a slot. At no moment on its way does the rest count as a firmware, not even
/// after a power cut.
/// @throws std::system_error
void Discard(const std::filesystem::path& slot);

/// What the slots are needed for.
enum class Use {
  kFree,           ///< the inactive slot may be written
  kAwaitsRestart,  ///< what was installed is the next boot's; the slot that runs is not the link's
  kAwaitsVerdict   ///< a boot is not judged yet: the other slot is the way back, or still runs
};

/// @throws std::system_error when the state cannot be read.
[[nodiscard]] Use GetUse();

/// Takes an activation back that was not booted: the next boot stays with what runs.
/// @throws std::system_error
void CallOff();

/// Makes the inactive slot the one that the next boot tries. The slot is on the disk already.
/// @throws std::system_error; the active slot then stays the next boot's.
void ActivateForTrial(const std::string& version);

/// Ends a trial or a failure: this boot's slot stays.
/// @throws std::system_error
void EndTrial();

/// Goes back to the previous slot, if a trial is running and the slot holds a firmware; the next
/// boot shows it.
/// @return whether it went back.
/// @throws std::system_error
bool FallBack(const std::string& failure);

}  // namespace kalo::slots
