#include "host/update/download/recovery.h"

#include <syslog.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>

#include "host/core/file_lock.h"
#include "host/core/key_value_file.h"
#include "host/core/log.h"
#include "platform/paths.h"

namespace kalo::download {
namespace fs = std::filesystem;
namespace {

// @return the step word of a progress file; empty when it has none.
std::string StepOf(const char* path) {
  const auto text = ReadKeyValueFile(path);
  return text ? text->Get("step").value_or("") : "";
}

// "finished" is written when the last patch is fetched; the job ends when the nodes have theirs,
// which the upgrade file tells.
bool IsLeftHalfDone() {
  const std::string step = StepOf(KALO::paths::kDownloadProgress);
  if (step == "downloading") return true;
  if (step != "finished") return false;
  const std::string upgrade = StepOf(KALO::paths::kUpgradeProgress);
  return upgrade != "ready_upgrade" && upgrade != "upgrading";
}

void WriteFailed() {
  const char* path = KALO::paths::kDownloadProgress;
  const auto edit = KeyValueEdit::Begin(path);
  KeyValueText text = edit && edit->Found() ? *edit->Found() : KeyValueText("");
  const bool set = text.Set("step", "failed") && text.Set("percent", "0");
  if (edit && set && edit->Commit(text)) return;
  Log(LOG_ERR, "%s: %s", path, std::strerror(errno));
}

void SweepParts(const char* store) {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(store, error)) {
    std::error_code ignored;
    if (entry.path().extension() == ".part") fs::remove(entry.path(), ignored);
  }
}

}  // namespace

bool RecoverDownload() {
  if (!IsLeftHalfDone()) return false;  // most often: without taking the lock
  const auto lock = FileLock::TryTake(KALO::paths::kPatchLock);
  if (!lock || !IsLeftHalfDone()) return false;
  Log(LOG_ERR, "a download ended without its last words: it counts as failed");
  WriteFailed();
  SweepParts(KALO::paths::kFullStore);
  SweepParts(KALO::paths::kNanoStore);
  return true;
}

}  // namespace kalo::download
