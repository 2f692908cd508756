#include "services/node/install_report.h"

#include <cerrno>
#include <charconv>

#include "host/core/file_io.h"
#include "host/core/key_value_text.h"
#include "platform/paths.h"

namespace kalo::node {
namespace {

constexpr std::size_t kMaxReport = 65536;

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
