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

// How a download is to be ended that has no process any more.
enum class Ending { kNone, kFinished, kFailed };

// "finished" is written when the last patch is fetched; the job ends when the nodes have theirs,
// which the upgrade file tells. A download that counted a group which it then skipped has never
// reached its last patch: its nodes are ready all the same.
Ending EndingOfLeft() {
  const std::string step = StepOf(KALO::paths::kDownloadProgress);
  if (step != "downloading" && step != "finished") return Ending::kNone;
  const std::string upgrade = StepOf(KALO::paths::kUpgradeProgress);
  if (upgrade != "ready_upgrade" && upgrade != "upgrading") return Ending::kFailed;
  return step == "downloading" ? Ending::kFinished : Ending::kNone;
}

void WriteEnding(const char* step, const char* percent) {
  const char* path = KALO::paths::kDownloadProgress;
  const auto edit = KeyValueEdit::Begin(path);
  KeyValueText text = edit && edit->Found() ? *edit->Found() : KeyValueText("");
  const bool set = text.Set("step", step) && text.Set("percent", percent);
  if (edit && set && edit->Commit(text)) return;
  Log(LOG_ERR, "%s: %s", path, std::strerror(errno));
}

void SweepParts(const char* store) {
  std::error_code error;
  for (fs::directory_iterator entry(store, error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code ignored;
    if (entry->path().extension() == ".part") fs::remove(entry->path(), ignored);
  }
}

}  // namespace

bool RecoverDownload() {
  if (EndingOfLeft() == Ending::kNone) return false;  // most often: without taking the lock
  const auto lock = FileLock::TryTake(KALO::paths::kPatchLock);
  if (!lock) return false;
  const Ending ending = EndingOfLeft();
  if (ending == Ending::kNone) return false;
  if (ending == Ending::kFinished) {
    WriteEnding("finished", "100");
  } else {
    Log(LOG_ERR, "a download ended without its last words: it counts as failed");
    WriteEnding("failed", "0");
  }
  SweepParts(KALO::paths::kFullStore);
  SweepParts(KALO::paths::kNanoStore);
  return true;
}

bool IsLastDownloadBroken() {
  const auto text = ReadKeyValueFile(KALO::paths::kDownloadProgress);
  const std::string step = text ? text->Get("step").value_or("") : "";
  // It writes its version before its first patch. A cancel while nothing runs writes none.
  return (step == "failed" || step == "canceled") && text->Get("version");
}

}  // namespace kalo::download
