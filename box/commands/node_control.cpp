#include "box/commands/node_control.h"

#include <stdexcept>

#include "box/control.h"

namespace kalo::box {
namespace {

Json::Value Checked(const std::string& who, const Json::Value& answer) {
  if (answer["error"].isString()) throw std::runtime_error(who + ": " + answer["error"].asString());
  return answer;
}

Json::Value AskNode(const Layout& layout, int node, const Json::Value& request,
                    std::span<const int> fds = {}) {
  return Checked("node " + std::to_string(node),
                 AskControl(layout.NodeControl(node), request, fds));
}

}  // namespace

int ExecInNode(const Layout& layout, int node, const std::vector<std::string>& argv,
               std::span<const int, 3> fds) {
  Json::Value request(Json::objectValue);
  request["op"] = "exec";
  for (const std::string& word : argv) request["argv"].append(word);
  const Json::Value answer = AskNode(layout, node, request, fds);
  return answer["status"].isInt() ? answer["status"].asInt() : -1;
}

void SetOnline(const Layout& layout, int node, bool online) {
  Json::Value request(Json::objectValue);
  request["op"] = online ? "online" : "offline";
  request["node"] = node;
  static_cast<void>(Checked("the mesh", AskControl(layout.LauncherControl(), request)));
}

void SignalService(const Layout& layout, int node, const std::string& service, int signal) {
  Json::Value request(Json::objectValue);
  request["op"] = "signal";
  request["service"] = service;
  request["signal"] = signal;
  static_cast<void>(AskNode(layout, node, request));
}

void WantService(const Layout& layout, int node, const std::string& service, bool wanted) {
  Json::Value request(Json::objectValue);
  request["op"] = "want";
  request["service"] = service;
  request["wanted"] = wanted;
  static_cast<void>(AskNode(layout, node, request));
}

}  // namespace kalo::box
