#include "services/node/slots.h"

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "host/core/file_io.h"
#include "host/core/key_value_text.h"
#include "host/core/log.h"
#include "host/core/unique_fd.h"
#include "platform/paths.h"

namespace kalo::slots {
namespace fs = std::filesystem;
namespace {

constexpr std::size_t kMaxState = 16384;

struct TrialWord {
  Trial trial;
  const char* word;
};

constexpr std::array kTrialWords = {
    TrialWord{Trial::kNone, "none"},
    TrialWord{Trial::kArmed, "armed"},
    TrialWord{Trial::kBooted, "booted"},
    TrialWord{Trial::kFailed, "failed"},
};

fs::path Folder() {
  return KALO::paths::kSlots;
}
fs::path Link() {
  return Folder() / "current";
}
fs::path StateFile() {
  return Folder() / "state";
}

[[noreturn]] void ThrowErrno(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

bool IsSlotName(std::string_view name) {
  return name == "a" || name == "b";
}

const char* Other(std::string_view slot) {
  return slot == "a" ? "b" : "a";
}

// A folder with a version file: what an installation writes last.
bool HoldsFirmware(std::string_view slot) {
  std::error_code ignored;
  return IsSlotName(slot) && fs::is_regular_file(Folder() / slot / "VERSION", ignored);
}

// @return the slot that the link names; empty when it names none.
std::string LinkedSlot() {
  std::error_code error;
  const std::string target = fs::read_symlink(Link(), error);
  return !error && IsSlotName(target) ? target : "";
}

const char* ToWord(Trial trial) {
  for (const TrialWord& entry : kTrialWords) {
    if (entry.trial == trial) return entry.word;
  }
  return "none";
}

Trial FromWord(std::string_view word) {
  for (const TrialWord& entry : kTrialWords) {
    if (entry.word == word) return entry.trial;
  }
  return Trial::kNone;
}

void WriteState(const State& state) {
  KeyValueText text("");
  if (!text.Set("trial", ToWord(state.trial)) || !text.Set("previous", state.previous) ||
      !text.Set("version", state.version) || !text.Set("failure", state.failure)) {
    throw std::system_error(EINVAL, std::generic_category(), "slot state");
  }
  if (!WriteFileAtomic(StateFile(), text.Text(), 0600))
    ThrowErrno("writing " + StateFile().string());
}

void SyncFolder(const fs::path& path) {
  const UniqueFd folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder || fsync(folder.Get()) != 0) ThrowErrno("syncing " + path.string());
}

void FlipLink(const std::string& slot) {
  const fs::path next = Folder() / "current.next";
  if (unlink(next.c_str()) != 0 && errno != ENOENT) ThrowErrno("removing " + next.string());
  if (symlink(slot.c_str(), next.c_str()) != 0) ThrowErrno("making " + next.string());
  if (rename(next.c_str(), Link().c_str()) != 0) ThrowErrno("flipping " + Link().string());
  SyncFolder(Folder());
}

void FailTrial(State state, const std::string& failure) {
  Log(LOG_ERR, "slots: going back to slot %s: %s", state.previous.c_str(), failure.c_str());
  FlipLink(state.previous);
  state.trial = Trial::kFailed;
  state.failure = failure;
  WriteState(state);
}

// Counts this boot against the trial.
void AdvanceTrial(State state) {
  if (state.trial == Trial::kArmed && LinkedSlot() == state.previous) {
    state.trial = Trial::kFailed;
    state.failure = "the installation was interrupted before the node restarted";
    WriteState(state);
  } else if (state.trial == Trial::kArmed) {
    state.trial = Trial::kBooted;
    WriteState(state);
  } else if (state.trial == Trial::kBooted && HoldsFirmware(state.previous)) {
    FailTrial(state, "the new version did not come up");
  }
}

// A node boots whatever the state says, or does not say.
State StateAtBoot() {
  try {
    return ReadState();
  } catch (const std::system_error& e) {
    Log(LOG_ERR, "slots: %s", e.what());
    return {};
  }
}

}  // namespace

State ReadState() {
  const auto text = ReadFile(StateFile(), kMaxState);
  if (!text && !IsNothingThere(errno)) ThrowErrno("reading " + StateFile().string());
  if (!text) return {};
  const KeyValueText values(*text);
  State state;
  state.trial = FromWord(values.Get("trial").value_or(""));
  state.previous = values.Get("previous").value_or("");
  state.version = values.Get("version").value_or("");
  state.failure = values.Get("failure").value_or("");
  // A trial without a way back is none.
  if (!IsSlotName(state.previous)) state.trial = Trial::kNone;
  return state;
}

fs::path ChooseAtBoot() {
  const State state = StateAtBoot();
  AdvanceTrial(state);
  for (const std::string& slot :
       {LinkedSlot(), state.previous, std::string("a"), std::string("b")}) {
    if (!HoldsFirmware(slot)) continue;
    if (slot != LinkedSlot()) {
      Log(LOG_ERR, "slots: the link names no firmware, taking slot %s", slot.c_str());
      FlipLink(slot);
    }
    return Folder() / slot;
  }
  throw std::runtime_error("no slot of " + Folder().string() + " holds a firmware");
}

fs::path ActiveSlot() {
  const std::string slot = LinkedSlot();
  if (slot.empty()) throw std::runtime_error(Link().string() + " names no slot");
  return Folder() / slot;
}

fs::path InactiveSlot() {
  return Folder() / Other(ActiveSlot().filename().string());
}

void Discard(const fs::path& slot) {
  if (fs::remove(slot / "VERSION")) SyncFolder(slot);
  fs::remove_all(slot);
}

Use GetUse() {
  const State state = ReadState();
  switch (state.trial) {
    case Trial::kNone:
      return Use::kFree;
    case Trial::kArmed:
      // With the old link it is an activation that broke off: nothing of it runs.
      return LinkedSlot() != state.previous ? Use::kAwaitsRestart : Use::kFree;
    case Trial::kBooted:
      // Without a firmware to go back to there is nothing to keep, and an update may be the cure.
      return HoldsFirmware(state.previous) ? Use::kAwaitsVerdict : Use::kFree;
    case Trial::kFailed:
      return Use::kAwaitsVerdict;
  }
  return Use::kFree;
}

void CallOff() {
  State state = ReadState();
  FlipLink(state.previous);
  state.trial = Trial::kNone;
  WriteState(state);
}

void ActivateForTrial(const std::string& version) {
  const std::string active = ActiveSlot().filename();
  WriteState({Trial::kArmed, active, version, ""});
  try {
    FlipLink(Other(active));
  } catch (const std::system_error&) {
    // The link may be flipped all the same, and only not be on the disk.
    try {
      CallOff();
    } catch (const std::system_error& e) {
      Log(LOG_ERR, "slots: the next boot may try slot %s: %s", Other(active), e.what());
    }
    throw;
  }
}

void EndTrial() {
  State state = ReadState();
  if (state.trial == Trial::kNone) return;
  state.trial = Trial::kNone;
  WriteState(state);
}

bool FallBack(const std::string& failure) {
  const State state = ReadState();
  if (state.trial != Trial::kBooted) return false;
  if (!HoldsFirmware(state.previous)) {
    Log(LOG_ERR, "slots: no way back: slot %s holds no firmware", state.previous.c_str());
    return false;
  }
  FailTrial(state, failure);
  return true;
}

}  // namespace kalo::slots
