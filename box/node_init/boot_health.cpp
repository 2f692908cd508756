#include "box/node_init/boot_health.h"

#include <arpa/inet.h>
#include <json/reader.h>
#include <sys/socket.h>

#include <memory>

#include "host/core/file_io.h"
#include "host/core/unique_fd.h"

namespace kalo::box {
namespace {

constexpr std::size_t kMaxConfiguration = 65536;
constexpr std::chrono::seconds kConfirmPause{1};

}  // namespace

MeshPort ReadMeshPort(const std::string& path) {
  MeshPort port;
  const auto text = ReadFile(path, kMaxConfiguration);
  if (!text) return port;
  Json::CharReaderBuilder builder;
  builder["stackLimit"] = 32;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value value;
  try {
    if (!reader->parse(text->data(), text->data() + text->size(), &value, nullptr)) return port;
  } catch (const Json::Exception&) {
    return port;
  }
  if (!value.isObject()) return port;
  if (value["address"].isString()) port.address = value["address"].asString();
  const Json::Value& number = value["mesh_port"];
  if (number.isUInt() && number.asUInt() <= UINT16_MAX) {
    port.port = static_cast<std::uint16_t>(number.asUInt());
  }
  return port;
}

bool Answers(const MeshPort& port) {
  const UniqueFd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port.port);
  if (!fd || inet_pton(AF_INET, port.address.c_str(), &address.sin_addr) != 1) return false;
  const auto* generic = reinterpret_cast<const sockaddr*>(&address);  // NOLINT(*-reinterpret-cast)
  return connect(fd.Get(), generic, sizeof address) == 0;
}

void BootHealth::Tick(Clock::time_point now) {
  if (verdict_ != Verdict::kOpen || running_ != Running::kNone) return;
  if (now >= deadline_) {
    verdict_ = Verdict::kBad;
    running_ = Running::kFallback;
    doors_.run_installer("fallback");
  } else if (now >= not_before_ && doors_.server_answers()) {
    not_before_ = now + kConfirmPause;
    running_ = Running::kConfirm;
    doors_.run_installer("confirm");
  }
}

void BootHealth::OnInstallerExit(int status) {
  if (running_ == Running::kConfirm && status == 0) verdict_ = Verdict::kHealthy;
  running_ = Running::kNone;
}

}  // namespace kalo::box
