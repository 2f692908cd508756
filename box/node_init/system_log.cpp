#include "box/node_init/system_log.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <string>
#include <system_error>

namespace kalo::box {
namespace {

constexpr std::size_t kMaxMessage = 16384;
constexpr int kFacilityDaemon = LOG_DAEMON;

UniqueFd Listen(const std::filesystem::path& path) {
  std::filesystem::remove(path);
  UniqueFd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.native().copy(address.sun_path, sizeof address.sun_path - 1);
  const auto* generic = reinterpret_cast<const sockaddr*>(&address);  // NOLINT(*-reinterpret-cast)
  if (!fd || bind(fd.Get(), generic, sizeof address) != 0 || chmod(path.c_str(), 0666) != 0) {
    throw std::system_error(errno, std::generic_category(), path);
  }
  return fd;
}

}  // namespace

SystemLog::SystemLog(const std::filesystem::path& socket, std::filesystem::path file,
                     std::uint64_t limit)
    : socket_(Listen(socket)), path_(std::move(file)), limit_(limit) {
  OpenFile();
  if (!file_) throw std::system_error(errno, std::generic_category(), path_);
}

void SystemLog::OpenFile() {
  file_.Reset(open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0640));
  struct stat found {};
  size_ = file_ && fstat(file_.Get(), &found) == 0 ? static_cast<std::uint64_t>(found.st_size) : 0;
}

void SystemLog::Take() {
  std::array<char, kMaxMessage> message{};
  for (;;) {
    const ssize_t length = recv(socket_.Get(), message.data(), message.size(), 0);
    if (length < 0) return;
    Append({message.data(), static_cast<std::size_t>(length)});
  }
}

void SystemLog::Write(int priority, std::string_view text) {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  localtime_r(&now, &parts);
  std::array<char, 32> time{};
  std::strftime(time.data(), time.size(), "%b %e %H:%M:%S", &parts);
  Append("<" + std::to_string(kFacilityDaemon | priority) + ">" + time.data() +
         " node-init: " + std::string(text));
}

void SystemLog::Append(std::string_view message) {
  std::string line(message);
  while (!line.empty() && (line.back() == '\n' || line.back() == '\0')) line.pop_back();
  // A message stays one line, whatever is in it.
  std::replace_if(
      line.begin(), line.end(), [](unsigned char c) { return c < ' ' && c != '\t'; }, ' ');
  line += '\n';
  if (size_ + line.size() > limit_) {
    std::error_code ignored;
    std::filesystem::rename(path_, path_.native() + ".1", ignored);
    OpenFile();
  }
  // A full disk costs log lines, nothing else.
  if (write(file_.Get(), line.data(), line.size()) > 0) size_ += line.size();
}

}  // namespace kalo::box
