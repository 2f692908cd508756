// A message on the channel between the web API server and a worker, with the files beside it: the
// first byte says which. The rest is the packet; or its header and, in a file, what follows that.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "fuzz/fuzz_target.h"
#include "host/core/file_io.h"
#include "services/webapid/worker_channel.h"

namespace kalo::webapid {
namespace {

constexpr std::size_t kHeader = 8;
constexpr int kAllSeals = F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;
constexpr int kMostDescriptors = 64;

// What stands beside a packet.
struct Beside {
  explicit Beside(unsigned byte)
      : files(byte & 3U),
        holds_body((byte & 4U) != 0),
        seals(static_cast<int>((byte >> 3U) & 15U)),
        is_pipe((byte & 128U) != 0) {}
  std::size_t files;
  bool holds_body;
  int seals;
  bool is_pipe;  ///< which cannot be sealed
};

UniqueFd MakeFile(const Beside& beside, std::string_view contents) {
  if (beside.is_pipe) {
    std::array<int, 2> ends{};
    fuzz::Require(pipe2(ends.data(), O_CLOEXEC) == 0, "there is a pipe");
    const UniqueFd writer(ends[1]);
    return UniqueFd(ends[0]);
  }
  UniqueFd file(memfd_create("fuzz", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  fuzz::Require(
      file && WriteAll(file.Get(), contents) && fcntl(file.Get(), F_ADD_SEALS, beside.seals) == 0,
      "there is a file");
  return file;
}

void Attach(msghdr& message, std::vector<char>& control, const std::vector<UniqueFd>& files) {
  if (files.empty()) return;
  control.resize(CMSG_SPACE(files.size() * sizeof(int)));
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  cmsghdr* part = CMSG_FIRSTHDR(&message);
  part->cmsg_level = SOL_SOCKET;
  part->cmsg_type = SCM_RIGHTS;
  part->cmsg_len = CMSG_LEN(files.size() * sizeof(int));
  std::vector<int> numbers;
  numbers.reserve(files.size());
  for (const UniqueFd& file : files) numbers.push_back(file.Get());
  std::memcpy(CMSG_DATA(part), numbers.data(), numbers.size() * sizeof(int));
}

bool Send(int fd, const Beside& beside, std::string packet, std::string_view contents) {
  std::vector<UniqueFd> files;
  while (files.size() < beside.files) files.push_back(MakeFile(beside, contents));
  iovec part{packet.data(), packet.size()};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  std::vector<char> control;
  Attach(message, control, files);
  return sendmsg(fd, &message, MSG_NOSIGNAL) >= 0;
}

int OpenDescriptors() {
  int count = 0;
  for (int fd = 0; fd < kMostDescriptors; ++fd) {
    if (fcntl(fd, F_GETFD) >= 0) ++count;
  }
  return count;
}

void CheckReceived(const Beside& beside, const std::string& packet, std::string_view contents,
                   const std::string& body) {
  fuzz::Require(packet.size() >= kHeader, "a message has a header");
  const bool in_file = (static_cast<unsigned char>(packet[3]) & 0x80U) != 0;
  fuzz::Require(body == (in_file ? contents : std::string_view(packet).substr(kHeader)),
                "a body is what was sent, and whole");
  fuzz::Require(!in_file || (beside.files == 1 && !beside.is_pipe && beside.seals == kAllSeals),
                "a body comes in one file that nobody can change");
}

}  // namespace
}  // namespace kalo::webapid

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kalo;
  using namespace kalo::webapid;
  constexpr std::size_t kMost = std::size_t{128} << 10;
  if (size == 0 || size > kMost) return 0;
  const Beside beside(data[0]);
  const std::string text = fuzz::TextOf(data + 1, size - 1);
  const std::size_t end = beside.holds_body ? std::min(kHeader, text.size()) : text.size();
  const std::string packet = text.substr(0, end);
  const std::string contents = text.substr(end);

  static const ChannelPair channel = MakeChannel();
  const int before = OpenDescriptors();
  if (!Send(channel.worker.Get(), beside, packet, contents)) return 0;
  ChannelMessage message{kRetiring, "untouched"};
  const Received received = ReceiveMessage(channel.front.Get(), message);
  if (received == Received::kMessage) {
    CheckReceived(beside, packet, contents, message.body);
  } else {
    fuzz::Require(message.flags == kRetiring && message.body == "untouched",
                  "what is no message leaves no trace");
  }
  fuzz::Require(OpenDescriptors() == before, "no descriptor is left behind");

  fuzz::Require(SendMessage(channel.worker.Get(), kRetiring, text),
                "what is no message can be a body");
  fuzz::Require(ReceiveMessage(channel.front.Get(), message) == Received::kMessage, "it comes");
  fuzz::Require(message.body == text && message.flags == kRetiring, "it comes as it was sent");
  return 0;
}
