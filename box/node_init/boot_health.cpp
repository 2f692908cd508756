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
constexpr std::chrono::seconds kPause{1};

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
  if (verdict_ == Verdict::kHealthy || running_ != Running::kNone || now < not_before_) return;
  if (now >= deadline_) {
    verdict_ = Verdict::kBad;
    if (fallbacks_left_ == 0) return;
    --fallbacks_left_;
    Run(Running::kFallback, "fallback", now);
  } else if (doors_.server_answers()) {
    Run(Running::kConfirm, "confirm", now);
  }
}

void BootHealth::Run(Running what, const char* word, Clock::time_point now) {
  not_before_ = now + kPause;
  running_ = what;
  doors_.run_installer(word);
}

void BootHealth::OnInstallerExit(int status) {
  if (running_ == Running::kConfirm && status == 0) verdict_ = Verdict::kHealthy;
  if (running_ == Running::kFallback && status == 0) fallbacks_left_ = 0;
  running_ = Running::kNone;
}

}  // namespace kalo::box
