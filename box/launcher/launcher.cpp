#include "box/launcher/launcher.h"

#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <iostream>

#include "box/feed_address.h"

namespace kalo::box {
namespace {

constexpr std::chrono::milliseconds kTick{50};
constexpr std::chrono::seconds kEndDeadline{8};

ServiceProgram FeedServer(const NodeBox::Setup& setup, int rate_kib) {
  const std::filesystem::path tls = setup.layout.FeedTls();
  ServiceProgram program{
      "feedd",
      {setup.build / "services/feedd/feedd", "--root", setup.layout.Feed(), "--listen", kFeedListen,
       "--cert", tls / "server.crt", "--key", tls / "server.key"}};
  if (rate_kib > 0) {
    program.argv.insert(program.argv.end(), {"--rate", std::to_string(rate_kib)});
  }
  return program;
}

}  // namespace

Launcher::Launcher(const NodeBox::Setup& setup, int nodes, int feed_rate_kib)
    : signals_({SIGTERM, SIGINT, SIGCHLD}),
      control_(ListenControl(setup.layout.LauncherControl())),
      feed_(FeedServer(setup, feed_rate_kib)) {
  for (int id = 0; id < nodes; ++id) nodes_.emplace_back(id, setup);
  loop_.Add(signals_.Fd(), [this] { OnSignal(); });
  loop_.Add(control_.Get(), [this] { OnConnection(); });
}

void Launcher::Run() {
  while (!ending_) {
    for (NodeBox& node : nodes_) node.Tick(NodeBox::Clock::now());
    feed_.Tick(Service::Clock::now());
    loop_.Turn(kTick);
  }
  EndNodes();
  if (down_) static_cast<void>(down_->Send(Json::Value(Json::objectValue)));
}

bool Launcher::AnyRuns() const {
  return std::any_of(nodes_.begin(), nodes_.end(), [](const NodeBox& n) { return n.Pid() != 0; });
}

void Launcher::EndNodes() {
  for (NodeBox& node : nodes_) {
    node.SetWanted(false);
    node.SwitchOff();
  }
  const auto deadline = NodeBox::Clock::now() + kEndDeadline;
  while (AnyRuns() && NodeBox::Clock::now() < deadline) loop_.Turn(kTick);
  for (NodeBox& node : nodes_) node.PullPlug();
  while (AnyRuns()) loop_.Turn(kTick);
}

void Launcher::OnSignal() {
  while (const int signal = signals_.Next()) {
    if (signal == SIGCHLD) {
      Reap();
    } else {
      ending_ = true;
    }
  }
}

void Launcher::Reap() {
  if (feed_.Pid() > 0 && waitpid(feed_.Pid(), nullptr, WNOHANG) == feed_.Pid()) {
    std::cerr << "the update feed ended\n";
    feed_.OnExit(Service::Clock::now());
  }
  for (NodeBox& node : nodes_) {
    int status = 0;
    if (node.Pid() == 0 || waitpid(node.Pid(), &status, WNOHANG) != node.Pid()) continue;
    const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    std::cerr << "node " << node.Id() << " ended with " << code << "\n";
    node.OnExit(code, NodeBox::Clock::now());
    waiting_.remove_if([&](Waiting& waiting) {
      if (waiting.node != node.Id()) return false;
      static_cast<void>(waiting.channel.Send(Json::Value(Json::objectValue)));
      return true;
    });
  }
}

void Launcher::OnConnection() {
  std::optional<ControlChannel> channel = AcceptControl(control_.Get());
  std::optional<ControlMessage> message = channel ? channel->Receive() : std::nullopt;
  if (message) Answer(std::move(*channel), message->body);
}

void Launcher::Answer(ControlChannel channel, const Json::Value& request) {
  if (request["op"] == "down") {
    ending_ = true;
    down_ = std::move(channel);
    return;
  }
  Json::Value answer(Json::objectValue);
  const auto node = std::find_if(nodes_.begin(), nodes_.end(),
                                 [&](const NodeBox& n) { return request["node"] == n.Id(); });
  if (node == nodes_.end()) {
    answer["error"] = "no such node";
  } else if (request["op"] == "offline") {
    SetOffline(*node, std::move(channel));
    return;
  } else if (request["op"] == "online") {
    node->SetWanted(true);
  } else {
    answer["error"] = "unknown request";
  }
  static_cast<void>(channel.Send(answer));
}

void Launcher::SetOffline(NodeBox& node, ControlChannel channel) {
  node.SetWanted(false);
  if (node.Pid() == 0) {
    static_cast<void>(channel.Send(Json::Value(Json::objectValue)));
    return;
  }
  node.PullPlug();
  waiting_.push_back({node.Id(), std::move(channel)});
}

}  // namespace kalo::box
