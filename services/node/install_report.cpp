#include "services/node/install_report.h"

#include <syslog.h>

#include <cerrno>
#include <charconv>
#include <optional>

#include "host/core/file_io.h"
#include "host/core/file_lock.h"
#include "host/core/key_value_text.h"
#include "host/core/log.h"
#include "platform/paths.h"
#include "services/node/error_codes.h"

namespace kalo::node {
namespace {

constexpr std::size_t kMaxReport = 65536;

// Whether the installer must be at it, if it lives.
bool NeedsInstaller(const InstallReport& report) {
  return TellsOfWork(report) && report.percent < kRestartAsked;
}

std::int32_t Number(const KeyValueText& values, const char* key) {
  const std::string text = values.Get(key).value_or("");
  std::int32_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

}  // namespace

InstallReport ReadInstallReport() {
  const auto text = ReadFile(KALO::paths::kInstallReport, kMaxReport);
  if (!text) return {};
  const KeyValueText values(*text);
  return {values.Get("step").value_or("none"), Number(values, "percent"),
          values.Get("version").value_or(""),  Number(values, "errno"),
          values.Get("err_desc").value_or(""), values.Get("err_msg").value_or("")};
}

bool TellsOfWork(const InstallReport& report) {
  return report.step != "none" && report.step != "failed" && report.step != "finish";
}

InstallReport EndLeftReport() {
  InstallReport report = ReadInstallReport();
  if (!NeedsInstaller(report)) return report;
  report.step = "failed";
  report.error_number = error::kGeneral;
  report.err_desc = "the installation broke off";
  report.err_msg = "the installer ended without a word";
  if (!WriteInstallReport(report)) Log(LOG_ERR, "upgrade: the report cannot be written");
  return report;
}

InstallReport CurrentReport() {
  InstallReport report = ReadInstallReport();
  if (!NeedsInstaller(report)) return report;
  const std::optional<FileLock> lock = FileLock::TryTake(KALO::paths::kInstallLock);
  return lock ? EndLeftReport() : report;
}

bool WriteInstallReport(const InstallReport& report) {
  KeyValueText text("");
  if (!text.Set("step", report.step) || !text.Set("percent", std::to_string(report.percent)) ||
      !text.Set("version", report.version) ||
      !text.Set("errno", std::to_string(report.error_number)) ||
      !text.Set("err_desc", report.err_desc) || !text.Set("err_msg", report.err_msg)) {
    errno = EINVAL;
    return false;
  }
  return WriteFileAtomic(KALO::paths::kInstallReport, text.Text(), 0600);
}

}  // namespace kalo::node
