// A request on its way from the front to a row's entry function in the worker.

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>

#include "fuzz/fuzz_target.h"
#include "host/core/strict_json.h"
#include "services/webapid/request_runner.h"
#include "services/webapid/worker_channel.h"
#include "services/webapid/worker_message.h"

namespace kalo::webapid {
namespace {

// What an entry function may expect, and that one ran: it takes no argument for it.
struct Exchange {
  Json::Value parameters = Json::Value(Json::objectValue);
  int runs = 0;
};

Exchange& TheExchange() {
  static Exchange exchange;
  return exchange;
}

void Enter(const KALO::APIRequest& request) {
  Exchange& exchange = TheExchange();
  ++exchange.runs;
  for (const std::string& name : exchange.parameters.getMemberNames()) {
    fuzz::Require(request.GetParam(name, Json::Value()) == exchange.parameters[name],
                  "a parameter comes as it was sent");
  }
}

void Succeed(KALO::APIRequest* request, KALO::APIResponse* response) {
  Enter(*request);
  response->SetSuccess(request->GetParam("data", Json::Value()));
}

void Fail(KALO::APIRequest* request, KALO::APIResponse* response) {
  Enter(*request);
  response->SetError(1, request->GetParam("data", Json::Value()));
}

void SayNothing(KALO::APIRequest* request, KALO::APIResponse* /*response*/) {
  Enter(*request);
}

void Throw(KALO::APIRequest* request, KALO::APIResponse* /*response*/) {
  Enter(*request);
  throw std::runtime_error("thrown");
}

constexpr std::array<KALO::APIRow, 4> kRows{{{"A", 1, "succeed", Succeed},
                                             {"A", 2147483647, "fail", Fail},
                                             {"A.B", 0, "say", SayNothing},
                                             {"A.B", -1, "throw", Throw}}};

const webapi::ApiRegistry& Rows() {
  static const webapi::ApiRegistry registry = [] {
    webapi::ApiRegistry rows;
    rows.Add(kRows, "the target");
    return rows;
  }();
  return registry;
}

RunResult Run(const std::string& body) {
  static const ForkWatch forks(-1);
  TheExchange().runs = 0;
  RunResult result = RunRequest(Rows(), forks, body);
  const auto envelope = ParseStrictJson(result.envelope);
  fuzz::Require(envelope && envelope->isObject() && (*envelope)["success"].isBool(),
                "every request has an answer");
  fuzz::Require((*envelope)["success"].asBool() != (*envelope)["error"]["code"].isInt(),
                "a failure has a number");
  fuzz::Require(TheExchange().runs <= (result.row_missing ? 0 : 1),
                "a row is there, and runs once");
  return result;
}

// Compared by value: the version may have zeros before it.
bool Names(const std::string& head, const KALO::APIRow& row) {
  const std::string api = row.api + std::string(" ");
  const std::string method = std::string(" ") + row.method;
  if (!head.starts_with(api) || !head.ends_with(method)) return false;
  if (head.size() <= api.size() + method.size()) return false;
  const std::string version = head.substr(api.size(), head.size() - api.size() - method.size());
  char* end = nullptr;
  errno = 0;
  const long number = std::strtol(version.c_str(), &end, 10);
  return errno == 0 && *end == '\0' && number == row.version;
}

}  // namespace
}  // namespace kalo::webapid

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace kalo;
  using namespace kalo::webapid;
  const std::string text = fuzz::TextOf(data, size);
  static const ChannelPair channel = MakeChannel();
  ChannelMessage message;
  fuzz::Require(SendMessage(channel.front.Get(), 0, text) &&
                    ReceiveMessage(channel.worker.Get(), message) == Received::kMessage &&
                    message.flags == 0 && message.body == text,
                "a request comes as it was sent");

  const std::size_t line = std::min(text.find('\n'), text.size());
  const auto parameters = ParseStrictJson(text.substr(std::min(line + 1, text.size())));
  const bool is_object = parameters && parameters->isObject();
  TheExchange().parameters = is_object ? *parameters : Json::Value(Json::objectValue);
  (void)Run(message.body);
  const std::string head = text.substr(0, line);
  fuzz::Require(TheExchange().runs == 0 ||
                    (is_object && std::any_of(kRows.begin(), kRows.end(),
                                              [&](const auto& row) { return Names(head, row); })),
                "only what names a row runs");

  for (const KALO::APIRow& row : kRows) {
    if (!is_object) break;
    webapi::RowDescription description;
    description.api = row.api;
    description.version = row.version;
    description.method = row.method;
    (void)Run(WorkerMessage(description, *parameters));
    fuzz::Require(TheExchange().runs == 1, "what the front asks for runs");
  }
  return 0;
}
