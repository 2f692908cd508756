// What the user must know before a full patch is installed: a full patch carries a program, its
// updater, which shows the licence agreement and looks for what stands in the way.

#include <sys/types.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>

#include "platform/core/file.h"
#include "platform/core/key_value.h"
#include "platform/core/process.h"
#include "platform/paths.h"
#include "platform/update/patch.h"
#include "webapi/error_codes.h"
#include "webapi/exceptions.h"
#include "webapi/key_value.h"
#include "webapi/log.h"
#include "webapi/program_flags.h"
#include "webapi/upgrade/full_patch_locator.h"
#include "webapi/upgrade_handler.h"

namespace KALO::MESH::Webapi {
namespace {

// Fixed numbers in the log lines of this file, which support staff search for.
namespace line {
constexpr int kLockBusy = 1451;
constexpr int kNotCleaned = 1459;
constexpr int kRenamed = 1501;
constexpr int kNoFullPatch = 1510;
constexpr int kOldPatch = 1522;
constexpr int kPatchWithPrecheck = 1528;
constexpr int kScratchNotEmptied = 1534;
constexpr int kNoEulaContent = 1557;
constexpr int kReasonsFound = 1562;
constexpr int kException = 1588;
constexpr int kNoUpdaterToAsk = 2345;
constexpr int kEulaQuestionFailed = 2352;
constexpr int kEulaQuestionException = 2356;
constexpr int kNoUpdaterToPrint = 2366;
constexpr int kEulaNotRun = 2373;
constexpr int kEulaFailed = 2385;
}  // namespace line

constexpr std::int32_t kFirstBuildWithPrecheck = 76000;
constexpr std::size_t kPatchNameSize = 256;
constexpr std::size_t kLeadingNoteSize = 1024;
constexpr std::size_t kReasonSize = 4096;

std::string UpdaterIn(const std::string& folder) {
  return folder + "/updater";
}

bool Exists(const std::string& path) {
  return KLIBCFileExist(path.c_str()) != 0;
}

void CleanScratch(int log_line) {
  if (KLIBCExec("/bin/rm", "-rf", paths::kPrecheckScratch, nullptr, nullptr) == 0) return;
  Log(LOG_ERR, log_line, "Failed to clean extract directory: %s", paths::kPrecheckScratch);
}

// Cleans up and frees the lock when the request has its answer.
class PrecheckEnd {
 public:
  explicit PrecheckEnd(int lock) : lock_(lock) {}
  PrecheckEnd(const PrecheckEnd&) = delete;
  PrecheckEnd& operator=(const PrecheckEnd&) = delete;
  ~PrecheckEnd() {
    CleanScratch(line::kNotCleaned);
    KLIBCFileUnlockByFile(lock_);
  }

 private:
  int lock_;
};

// @return a patch that a user handed in, moved to its new name; empty when there is none.
std::optional<std::string> HandedInPatch(UpgradeHandler& handler) {
  const KeyValue name = ReadKeyValue<kPatchNameSize>(paths::kPatchInformation, "patch_upload");
  if (name.length <= 0) return std::nullopt;
  for (const UpgradeHandler::UpdateNode& node : handler.GetUpdateNodes()) {
    const std::string path = "/tmp/" + node.GetUnique() + "_" + name.text + ".pat";
    if (!Exists(path)) continue;
    const std::string renamed = path.substr(0, path.rfind('/')) + "/FullUpgrade.pat";
    if (rename(path.c_str(), renamed.c_str()) != 0) continue;
    Log(LOG_DEBUG, line::kRenamed, "Renamed patch to FullUpgrade.pat: %s", renamed.c_str());
    return renamed;
  }
  return std::nullopt;
}

// @return whether the patch's updater takes part in a precheck.
bool HasPrecheck(const std::string& path) {
  SDK::Upgrade::PatchInfo info;
  try {
    info = SDK::Upgrade::Patch::ParsePatchInfo(path);
  } catch (const std::exception&) {
    throw WebapiException("Failed to parse patch info for version check");
  }
  if (info.valid && info.build_num < kFirstBuildWithPrecheck) {
    Log(LOG_DEBUG, line::kOldPatch, "Patch build number (%d) is less than 76000, skipping precheck",
        info.build_num);
    return false;
  }
  // Also for a patch that does not verify: of that the platform leaves nothing to unpack.
  Log(LOG_DEBUG, line::kPatchWithPrecheck,
      "Patch build number (%d) is >= 76000, proceeding with precheck", info.build_num);
  return true;
}

void Extract(const std::string& path) {
  CleanScratch(line::kScratchNotEmptied);
  if (KLIBCExec("/bin/mkdir", "-p", paths::kPrecheckScratch, nullptr, nullptr) != 0) {
    throw WebapiException("Failed to create extract directory");
  }
  if (KLIBCExecl("/bin/tar", kQuietProgram, "-xf", path.c_str(), "-C", paths::kPrecheckScratch,
                 "updater", "VERSION", "texts", nullptr) != 0) {
    throw WebapiException("Failed to extract updater, VERSION and texts from FullUpgrade.pat");
  }
  if (!Exists(UpdaterIn(paths::kPrecheckScratch))) {
    throw WebapiException("Updater program not found");
  }
}

// @return the updater's findings, which it left in its report.
Json::Value ReadReport() {
  const char* report = paths::kPrecheckReport;
  Json::Value info(Json::objectValue);
  info["can_continue"] = KLIBCFileCheckKeyValue(report, "can_continue", "yes", 1) != 0;
  const KeyValue note = ReadKeyValue<kLeadingNoteSize>(report, "leading_note");
  if (note.length <= 0) throw WebapiException("Failed to get leading note");
  const KeyValue reason = ReadKeyValue<kReasonSize>(report, "reason");
  if (reason.length <= 0) throw WebapiException("Failed to get reason from");
  info["message"] = reason.text;
  info["leading_note"] = note.text;
  return info;
}

Json::Value RunUpdater(UpgradeHandler& handler, const std::string& language) {
  Json::Value answer(Json::objectValue);
  answer["eulacheck"] = false;
  answer["precheck"] = false;
  if (handler.CheckEulaStart(paths::kPrecheckScratch)) {
    const std::string text = handler.GetEulaContent(paths::kPrecheckScratch, language);
    if (text.empty()) {
      Log(LOG_ERR, line::kNoEulaContent, "Failed to get eula content");
    } else {
      answer["eulacheck"] = true;
      answer["eulacheck_content"] = text;
    }
  }
  const std::string updater = UpdaterIn(paths::kPrecheckScratch);
  if (KLIBCExec(updater.c_str(), "-p", "-l", language.c_str(), nullptr) != 0) {
    Log(LOG_ERR, line::kReasonsFound, "Some customized reasons found by updater precheck");
  }
  // The report decides, not the exit status.
  if (Exists(paths::kPrecheckReport)) {
    answer["precheck_info"] = ReadReport();
    answer["precheck"] = true;
  }
  return answer;
}

Json::Value Precheck(UpgradeHandler& handler, const std::string& language) {
  Json::Value answer(Json::objectValue);
  std::optional<std::string> path = LocatedPatch(paths::kFullPatchLocator);
  if (!path) path = HandedInPatch(handler);
  if (!path) {
    Log(LOG_INFO, line::kNoFullPatch, "FullUpgrade.pat not found, treat as nano precheck success");
    answer["eulacheck"] = false;
    answer["precheck"] = false;
    return answer;
  }
  if (!HasPrecheck(*path)) {
    answer["leading_note"] = "";
    answer["reason"] = "";
    return answer;
  }
  Extract(*path);
  return RunUpdater(handler, language);
}

// What a program says, closed whatever happens.
class ProgramStream {
 public:
  explicit ProgramStream(std::FILE* stream) : stream_(stream) {}
  ProgramStream(const ProgramStream&) = delete;
  ProgramStream& operator=(const ProgramStream&) = delete;
  ~ProgramStream() {
    if (stream_ != nullptr) KLIBCPclose(stream_);
  }

  [[nodiscard]] std::FILE* Get() const { return stream_; }
  // @return the program's exit status.
  [[nodiscard]] int Close() { return KLIBCPclose(std::exchange(stream_, nullptr)); }

 private:
  std::FILE* stream_;
};

}  // namespace

void UpgradeHandler::RunUpgradePrecheck() {
  const std::string language = request_->GetAndCheckString("lang").value_or("enu");
  int lock = -1;
  if (KLIBCFileLockByFile(paths::kPrecheckLock, 1, &lock) == 0) {
    Log(LOG_ERR, line::kLockBusy, "Failed to acquire precheck lock");
    response_->SetError(error::kPrecheckFailed, Json::Value());
    return;
  }
  const PrecheckEnd end(lock);
  try {
    unlink(paths::kPrecheckReport);  // only this run's findings count
    response_->SetSuccess(Precheck(*this, language));
  } catch (const std::exception& e) {
    AnswerException(*response_, line::kException, "RunUpgradePrecheck exception", e,
                    error::kPrecheckFailed);
  } catch (...) {
    Log(LOG_ERR, line::kException, "RunUpgradePrecheck exception: unknown");
    response_->SetError(error::kPrecheckFailed, Json::Value());
  }
}

bool UpgradeHandler::CheckEulaStart(const std::string& dir) {
  try {
    const std::string updater = UpdaterIn(dir);
    if (!Exists(updater)) {
      Log(LOG_ERR, line::kNoUpdaterToAsk, "Updater program not found at: %s", updater.c_str());
      return false;
    }
    // Unsigned: a program that could not be run is an error like any other.
    const auto status = static_cast<unsigned int>(
        KLIBCExecl(updater.c_str(), kQuietProgram, "--should-show-eula", nullptr));
    if (status > 1) {
      Log(LOG_ERR, line::kEulaQuestionFailed, "Failed to check eula before upgrade, err = %d",
          static_cast<int>(status));
    }
    return status == 1;
  } catch (const std::exception& e) {
    Log(LOG_ERR, line::kEulaQuestionException, "Exception in CheckEulaStart: %s", e.what());
    return false;
  }
}

std::string UpgradeHandler::GetEulaContent(const std::string& dir, const std::string& lang) {
  try {
    const std::string updater = UpdaterIn(dir);
    if (!Exists(updater)) {
      Log(LOG_ERR, line::kNoUpdaterToPrint, "Updater program not found at: %s", updater.c_str());
      return "";
    }
    ProgramStream stream(KLIBCPopen(updater.c_str(), "r", "updater", "--print-eula-content", "-l",
                                    lang.c_str(), static_cast<char*>(nullptr)));
    if (stream.Get() == nullptr) {
      Log(LOG_ERR, line::kEulaNotRun, "Failed to execute updater with KLIBCPopen");
      return "";
    }
    std::string text;
    std::array<char, 4096> piece{};
    while (fgets(piece.data(), static_cast<int>(piece.size()), stream.Get()) != nullptr) {
      text += piece.data();
    }
    const int status = stream.Close();
    if (status != 0) {
      Log(LOG_ERR, line::kEulaFailed, "Failed to get EULA content, command returned: %d", status);
      return "";
    }
    return text;
  } catch (const std::exception& e) {
    Log(LOG_ERR, __LINE__, "Exception in GetEulaContent: %s", e.what());
    return "";
  }
}

}  // namespace KALO::MESH::Webapi
