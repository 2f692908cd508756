#pragma once

#include <json/value.h>

#include <filesystem>
#include <optional>
#include <span>
#include <vector>

#include "host/core/unique_fd.h"

namespace kalo::box {

/// One message between the box's programs: an object, and descriptors that come with it.
struct ControlMessage {
  Json::Value body;
  std::vector<UniqueFd> fds;
};

/// One connection of the box's own control sockets, by which a command outside talks to the
/// launcher and to a node's first process. Only the owner of the state folder reaches them.
class ControlChannel {
 public:
  explicit ControlChannel(UniqueFd fd) : fd_(std::move(fd)) {}

  [[nodiscard]] int Fd() const { return fd_.Get(); }
  /// @param fds at most three descriptors, which stay the caller's
  /// @return false when the other side is gone.
  [[nodiscard]] bool Send(const Json::Value& body, std::span<const int> fds = {});
  /// Waits for the next message.
  /// @return empty when the other side closed, or sent what is no object.
  [[nodiscard]] std::optional<ControlMessage> Receive();

 private:
  UniqueFd fd_;
};

/// Makes the socket, over one that an earlier run left. The path may be of any length.
/// @throws std::system_error
[[nodiscard]] UniqueFd ListenControl(const std::filesystem::path& path);

/// @return empty when nobody connects any more.
[[nodiscard]] std::optional<ControlChannel> AcceptControl(int listening);

/// @return empty with errno set when nobody listens there.
[[nodiscard]] std::optional<ControlChannel> ConnectControl(const std::filesystem::path& path);

/// Sends one request and waits for its answer.
/// @return the answer; an object with "error" when there was none.
[[nodiscard]] Json::Value AskControl(const std::filesystem::path& path, const Json::Value& request,
                                     std::span<const int> fds = {});

}  // namespace kalo::box
