#include "services/webapid/worker_channel.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <system_error>
#include <utility>

#include "host/core/file_io.h"

namespace kalo::webapid {
namespace {

constexpr std::uint32_t kInMemoryFile = 0x8000'0000;
constexpr int kSeals = F_SEAL_WRITE | F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL;

struct Header {
  std::uint32_t flags;
  std::uint32_t size;  // of the body, wherever it is
};

union ControlBuffer {
  cmsghdr align;
  std::array<char, CMSG_SPACE(sizeof(int))> bytes;
};

UniqueFd MakeMemoryFile(std::string_view body) {
  UniqueFd file(memfd_create("kalo-webapi", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  if (!file || !WriteAll(file.Get(), body) || fcntl(file.Get(), F_ADD_SEALS, kSeals) != 0)
    return UniqueFd();
  return file;
}

void AttachFile(msghdr& message, ControlBuffer& control, int file) {
  message.msg_control = control.bytes.data();
  message.msg_controllen = control.bytes.size();
  cmsghdr* part = CMSG_FIRSTHDR(&message);
  part->cmsg_level = SOL_SOCKET;
  part->cmsg_type = SCM_RIGHTS;
  part->cmsg_len = CMSG_LEN(sizeof(int));
  std::memcpy(CMSG_DATA(part), &file, sizeof(int));
}

UniqueFd TakeFile(msghdr& message) {
  const cmsghdr* part = CMSG_FIRSTHDR(&message);
  if (part == nullptr || part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS ||
      part->cmsg_len != CMSG_LEN(sizeof(int))) {
    return UniqueFd();
  }
  int file = -1;
  std::memcpy(&file, CMSG_DATA(part), sizeof(int));
  return UniqueFd(file);
}

bool IsSealed(int file) {
  // Negative for a file of a kind that has no seals, and then every bit is set.
  const int seals = fcntl(file, F_GET_SEALS);
  return seals >= 0 && (seals & kSeals) == kSeals;
}

std::optional<std::string> ReadMemoryFile(const UniqueFd& file, std::size_t size) {
  struct stat info {};
  if (!file || size > kLargestBody || !IsSealed(file.Get()) || fstat(file.Get(), &info) != 0 ||
      info.st_size != static_cast<off_t>(size)) {
    return std::nullopt;
  }
  std::string body(size, '\0');
  for (std::size_t done = 0; done < size;) {
    const ssize_t n = pread(file.Get(), body.data() + done, size - done, static_cast<off_t>(done));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return std::nullopt;
    done += static_cast<std::size_t>(n);
  }
  return body;
}

Received Failed() {
  return errno == EAGAIN ? Received::kNothingYet
                         : (errno == ECONNRESET ? Received::kClosed : Received::kBroken);
}

}  // namespace

ChannelPair MakeChannel() {
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    throw std::system_error(errno, std::generic_category(), "socketpair");
  }
  ChannelPair pair{UniqueFd(ends[0]), UniqueFd(ends[1])};
  if (fcntl(pair.front.Get(), F_SETFL, O_NONBLOCK) != 0) {
    throw std::system_error(errno, std::generic_category(), "fcntl");
  }
  return pair;
}

bool SendMessage(int fd, std::uint32_t flags, std::string_view body) {
  if (body.size() > kLargestBody) {
    errno = EMSGSIZE;
    return false;
  }
  const bool in_file = body.size() > kInlineBody;
  Header header{in_file ? flags | kInMemoryFile : flags, static_cast<std::uint32_t>(body.size())};
  std::array<iovec, 2> parts{iovec{&header, sizeof(header)},
                             iovec{const_cast<char*>(body.data()), in_file ? 0 : body.size()}};
  msghdr message{};
  message.msg_iov = parts.data();
  message.msg_iovlen = parts.size();
  ControlBuffer control{};
  UniqueFd file;
  if (in_file) {
    file = MakeMemoryFile(body);
    if (!file) return false;
    AttachFile(message, control, file.Get());
  }
  ssize_t sent = -1;
  do {
    sent = sendmsg(fd, &message, MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  return sent >= 0;
}

Received ReceiveMessage(int fd, ChannelMessage& result) {
  Header header{};
  // Not cleared, and not from the heap, which would tidy itself at each block of this size: most
  // messages are short, and what they leave of it is never touched.
  std::array<char, kInlineBody> buffer;  // NOLINT(cppcoreguidelines-pro-type-member-init)
  std::array<iovec, 2> parts{iovec{&header, sizeof(header)}, iovec{buffer.data(), buffer.size()}};
  msghdr message{};
  message.msg_iov = parts.data();
  message.msg_iovlen = parts.size();
  ControlBuffer control{};
  message.msg_control = control.bytes.data();
  // Without what rounds the buffer up, where a second file would come in.
  message.msg_controllen = CMSG_LEN(sizeof(int));
  ssize_t size = -1;
  do {
    size = recvmsg(fd, &message, MSG_CMSG_CLOEXEC);
  } while (size < 0 && errno == EINTR);
  if (size < 0) return Failed();
  const UniqueFd file = TakeFile(message);
  if (size == 0) return Received::kClosed;
  const std::size_t got = static_cast<std::size_t>(size);
  if (got < sizeof(header) || (message.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0) {
    return Received::kBroken;
  }
  if ((header.flags & kInMemoryFile) != 0) {
    std::optional<std::string> in_file = ReadMemoryFile(file, header.size);
    if (!in_file) return Received::kBroken;
    result = {header.flags & ~kInMemoryFile, std::move(*in_file)};
  } else {
    if (header.size != got - sizeof(header)) return Received::kBroken;
    result = {header.flags, std::string(buffer.data(), header.size)};
  }
  return Received::kMessage;
}

}  // namespace kalo::webapid
