#include "services/node/node_info.h"

#include <array>
#include <charconv>
#include <stdexcept>

#include "host/core/file_io.h"
#include "host/update/patch_format/description.h"
#include "platform/core/key_value.h"
#include "platform/paths.h"
#include "services/node/install_report.h"
#include "services/node/stage.h"

namespace kalo::node {
namespace {

constexpr const char* kNodeIdentity = "/etc/kalo/node.conf";
constexpr std::size_t kMaxVersionFile = 16384;
constexpr std::size_t kMaxBootId = 256;

std::string ReadKey(const char* path, const char* key) {
  std::array<char, 8192> buffer{};
  if (KLIBCFileGetKeyValue(path, key, buffer.data(), buffer.size(), 0) <= 0) {
    throw std::runtime_error(std::string("cannot read \"") + key + "\" of " + path);
  }
  return buffer.data();
}

std::string BootId() {
  std::string text = ReadFile(KALO::paths::kBootId, kMaxBootId).value_or("");
  while (!text.empty() && text.back() == '\n') text.pop_back();
  if (text.empty()) {
    throw std::runtime_error(std::string("cannot read ") + KALO::paths::kBootId);
  }
  return text;
}

void AddError(const InstallReport& report, Json::Value& answer) {
  answer["errno"] = report.error_number;
  answer["err_desc"] = report.err_desc;
  answer["err_msg"] = report.err_msg;
}

Json::Value ReportOf(const InstallReport& report) {
  Json::Value answer(Json::objectValue);
  answer["version"] = report.version;
  answer["step"] = report.step;
  answer["percent"] = report.percent;
  AddError(report, answer);
  return answer;
}

}  // namespace

int NodeId() {
  const std::string text = ReadKey(kNodeIdentity, "id");
  int id = -1;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
  if (error != std::errc() || end != text.data() + text.size() || id < 0) {
    throw std::runtime_error("\"id\" of " + std::string(kNodeIdentity) + " is no node id");
  }
  return id;
}

patch::PatchDescription RunningVersion() {
  const auto text = ReadFile(KALO::paths::kRunningVersion, kMaxVersionFile);
  if (!text) throw std::runtime_error(std::string("cannot read ") + KALO::paths::kRunningVersion);
  patch::PatchDescription running = patch::ParseDescription(*text);
  running.unique = ReadKey(KALO::paths::kDefaults, "unique");
  return running;
}

Json::Value NodeInfo() {
  const patch::PatchDescription running = RunningVersion();
  Json::Value answer(Json::objectValue);
  answer["node_id"] = NodeId();
  answer["name"] = ReadKey(kNodeIdentity, "name");
  answer["unique"] = running.unique;
  answer["version"] = running.version;
  answer["build"] = running.build;
  answer["nano"] = running.nano;
  answer["boot_id"] = BootId();
  const auto staged = ReadStaged();
  answer["staged_version"] = staged ? staged->description.version : "";
  answer["staged_build"] = staged ? staged->description.build : 0;
  answer["staged_nano"] = staged ? staged->description.nano : 0;
  answer["install"] = ReportOf(CurrentReport());
  return answer;
}

Json::Value InstallProgress() {
  return ReportOf(CurrentReport());
}

}  // namespace kalo::node
