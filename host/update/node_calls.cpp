#include "host/update/node_calls.h"

#include <syslog.h>

#include <list>
#include <memory>
#include <stdexcept>

#include "host/core/log.h"
#include "host/update/mesh_credentials.h"

namespace kalo {
namespace {

constexpr int kLookEveryMs = 1000;

// All transfers of one round. Each stays in the multi handle until the round is over.
class Round {
 public:
  Round() : multi_(Curl().multi_init()) {
    if (!multi_) throw std::runtime_error("the HTTP library cannot be started");
  }
  Round(const Round&) = delete;
  Round& operator=(const Round&) = delete;
  ~Round() {
    for (Leg& leg : legs_) Curl().multi_remove_handle(multi_.get(), leg.curl.get());
  }

  void Add(const NodeAddress& node, const NodeCall& call, std::chrono::milliseconds deadline) {
    Leg leg{node.node_id, NewCurlHandle(), nullptr, CURLE_FAILED_INIT};
    leg.transfer = std::make_unique<NodeTransfer>(leg.curl.get(), node, call);
    leg.transfer->SendJson(Json::Value(Json::objectValue), deadline);
    legs_.push_back(std::move(leg));
    Curl().multi_add_handle(multi_.get(), legs_.back().curl.get());
  }

  void Run() {
    int running = 0;
    while (Curl().multi_perform(multi_.get(), &running) == CURLM_OK && running > 0) {
      if (Curl().multi_poll(multi_.get(), nullptr, 0, kLookEveryMs, nullptr) != CURLM_OK) break;
    }
    int left = 0;
    while (const CURLMsg* message = Curl().multi_info_read(multi_.get(), &left)) {
      for (Leg& leg : legs_) {
        if (leg.curl.get() == message->easy_handle) leg.result = message->data.result;
      }
    }
  }

  void Collect(std::map<std::int32_t, KALO::MESH::SDK::Response>& answers) const {
    for (const Leg& leg : legs_) {
      try {
        answers[leg.node_id] = leg.transfer->Answer(leg.result);
      } catch (const NodeUnreachable& e) {
        Log(LOG_ERR, "%s", e.what());
      }
    }
  }

 private:
  struct Leg {
    std::int32_t node_id;
    CurlHandle curl;  // outlives the transfer, which sets it up
    std::unique_ptr<NodeTransfer> transfer;
    CURLcode result;
  };
  CurlMultiHandle multi_;
  std::list<Leg> legs_;
};

}  // namespace

std::map<std::int32_t, KALO::MESH::SDK::Response> CallNodes(const std::vector<NodeAddress>& nodes,
                                                            const NodeCall& call,
                                                            std::chrono::milliseconds deadline) {
  CheckMeshCredentials();
  std::map<std::int32_t, KALO::MESH::SDK::Response> answers;
  Round round;
  for (const NodeAddress& node : nodes) {
    answers[node.node_id] = {};
    try {
      round.Add(node, call, deadline);
    } catch (const NodeUnreachable& e) {
      Log(LOG_ERR, "%s", e.what());
    }
  }
  round.Run();
  round.Collect(answers);
  return answers;
}

}  // namespace kalo
