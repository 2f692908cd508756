#include "box/control.h"

#include <fcntl.h>
#include <json/reader.h>
#include <json/writer.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <system_error>

namespace kalo::box {
namespace fs = std::filesystem;
namespace {

constexpr std::size_t kMaxMessage = 60000;
constexpr std::size_t kMaxFds = 3;

UniqueFd MakeSocket() {
  return UniqueFd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
}

// A socket's address holds 107 characters and a state folder's path may be longer: go through the
// folder's descriptor.
class SocketAddress {
 public:
  explicit SocketAddress(const fs::path& path)
      : folder_(open(path.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {
    const std::string text =
        "/proc/self/fd/" + std::to_string(folder_.Get()) + "/" + path.filename().string();
    text.copy(address_.sun_path, sizeof address_.sun_path - 1);
    address_.sun_family = AF_UNIX;
  }
  [[nodiscard]] const sockaddr* Get() const {
    return reinterpret_cast<const sockaddr*>(&address_);  // NOLINT(*-reinterpret-cast)
  }

 private:
  UniqueFd folder_;
  sockaddr_un address_{};
};

std::optional<Json::Value> ParseObject(const char* begin, const char* end) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder.settings_["stackLimit"] = 16;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value value;
  std::string errors;
  try {
    if (!reader->parse(begin, end, &value, &errors) || !value.isObject()) return std::nullopt;
  } catch (const Json::Exception&) {
    return std::nullopt;
  }
  return value;
}

std::vector<UniqueFd> TakeFds(msghdr& header) {
  std::vector<UniqueFd> fds;
  for (cmsghdr* part = CMSG_FIRSTHDR(&header); part != nullptr; part = CMSG_NXTHDR(&header, part)) {
    if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS) continue;
    const std::size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (std::size_t i = 0; i < count; ++i) {
      int fd = -1;
      std::memcpy(&fd, CMSG_DATA(part) + i * sizeof(int), sizeof fd);
      fds.emplace_back(fd);
    }
  }
  return fds;
}

}  // namespace

bool ControlChannel::Send(const Json::Value& body, std::span<const int> fds) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  std::string text = Json::writeString(builder, body);
  if (text.size() > kMaxMessage || fds.size() > kMaxFds) return false;
  iovec data{text.data(), text.size()};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(kMaxFds * sizeof(int))> room{};
  msghdr header{};
  header.msg_iov = &data;
  header.msg_iovlen = 1;
  if (!fds.empty()) {
    header.msg_control = room.data();
    header.msg_controllen = CMSG_SPACE(fds.size_bytes());
    cmsghdr* const part = CMSG_FIRSTHDR(&header);
    part->cmsg_level = SOL_SOCKET;
    part->cmsg_type = SCM_RIGHTS;
    part->cmsg_len = CMSG_LEN(fds.size_bytes());
    std::memcpy(CMSG_DATA(part), fds.data(), fds.size_bytes());
  }
  return sendmsg(fd_.Get(), &header, MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
}

std::optional<ControlMessage> ControlChannel::Receive() {
  std::vector<char> text(kMaxMessage);
  iovec data{text.data(), text.size()};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(kMaxFds * sizeof(int))> room{};
  msghdr header{};
  header.msg_iov = &data;
  header.msg_iovlen = 1;
  header.msg_control = room.data();
  header.msg_controllen = room.size();
  ssize_t length = -1;
  do {
    length = recvmsg(fd_.Get(), &header, MSG_CMSG_CLOEXEC);
  } while (length < 0 && errno == EINTR);
  if (length <= 0) return std::nullopt;
  std::vector<UniqueFd> fds = TakeFds(header);
  std::optional<Json::Value> body = ParseObject(text.data(), text.data() + length);
  if (!body) return std::nullopt;
  return ControlMessage{std::move(*body), std::move(fds)};
}

UniqueFd ListenControl(const fs::path& path) {
  fs::remove(path);
  UniqueFd fd = MakeSocket();
  const SocketAddress address(path);
  if (!fd || bind(fd.Get(), address.Get(), sizeof(sockaddr_un)) != 0 || listen(fd.Get(), 16) != 0) {
    throw std::system_error(errno, std::generic_category(), path);
  }
  return fd;
}

std::optional<ControlChannel> AcceptControl(int listening) {
  UniqueFd fd(accept4(listening, nullptr, nullptr, SOCK_CLOEXEC));
  if (!fd) return std::nullopt;
  // Who connects and says nothing must not hold up a loop that serves others too.
  const timeval patience{1, 0};
  setsockopt(fd.Get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  return ControlChannel(std::move(fd));
}

std::optional<ControlChannel> ConnectControl(const fs::path& path) {
  UniqueFd fd = MakeSocket();
  const SocketAddress address(path);
  if (!fd || connect(fd.Get(), address.Get(), sizeof(sockaddr_un)) != 0) return std::nullopt;
  return ControlChannel(std::move(fd));
}

Json::Value AskControl(const fs::path& path, const Json::Value& request, std::span<const int> fds) {
  Json::Value failed(Json::objectValue);
  std::optional<ControlChannel> channel = ConnectControl(path);
  if (!channel) {
    failed["error"] = "not running";
    return failed;
  }
  if (channel->Send(request, fds)) {
    if (std::optional<ControlMessage> answer = channel->Receive()) return answer->body;
  }
  failed["error"] = "ended before it answered";
  return failed;
}

}  // namespace kalo::box
