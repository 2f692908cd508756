// The node's /usr/kalo/sbin/reboot: asks the box to start this node again.

#include <iostream>

#include "box/control.h"
#include "box/layout.h"

int main() {
  Json::Value request(Json::objectValue);
  request["op"] = "reboot";
  const Json::Value answer = kalo::box::AskControl(kalo::box::kBoxControl, request);
  if (!answer.isMember("error")) return 0;
  std::cerr << "reboot: " << answer["error"].asString() << "\n";
  return 1;
}
