#include "services/webapid/request_runner.h"

#include <syslog.h>
#include <unistd.h>

#include <charconv>
#include <cstddef>
#include <exception>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include "host/core/log.h"
#include "host/core/strict_json.h"
#include "host/webapi/error_codes.h"
#include "platform/webapi/api_request.h"
#include "platform/webapi/api_response.h"
#include "services/webapid/error_sentences.h"

namespace kalo::webapid {
namespace {

struct Call {
  std::string api;
  int version = 0;
  std::string method;
  Json::Value parameters;

  [[nodiscard]] std::string Name() const {
    return api + " " + std::to_string(version) + " " + method;
  }
};

std::optional<Json::Value> ParseParameters(std::string_view text) {
  if (text == "{}") return Json::Value(Json::objectValue);
  std::optional<Json::Value> value = ParseStrictJson(text);
  return value && value->isObject() ? std::move(value) : std::nullopt;
}

std::optional<Call> ParseCall(std::string_view body) {
  const std::size_t line = body.find('\n');
  const std::size_t first = body.find(' ');
  if (line == std::string_view::npos || first >= line) return std::nullopt;
  const std::size_t second = body.find(' ', first + 1);
  if (second >= line) return std::nullopt;
  Call call{std::string(body.substr(0, first)), 0,
            std::string(body.substr(second + 1, line - second - 1)), Json::Value()};
  const std::string_view version = body.substr(first + 1, second - first - 1);
  const char* end = version.data() + version.size();
  const auto [rest, error] = std::from_chars(version.data(), end, call.version);
  if (error != std::errc() || rest != end) return std::nullopt;
  std::optional<Json::Value> parameters = ParseParameters(body.substr(line + 1));
  if (!parameters) return std::nullopt;
  call.parameters = std::move(*parameters);
  return call;
}

// A background child comes back through the module's own call chain, by returning or by an
// exception. It has nothing to say here and must not run the worker's clean-up either.
void EndChild(const ForkWatch& forks) {
  if (forks.InChild()) _exit(0);
}

// Runs the entry function; whatever it throws ends here.
void Enter(KALO::APIHandler handler, Call& call, const ForkWatch& forks,
           KALO::APIResponse& response) {
  KALO::APIRequest request(std::move(call.parameters));
  try {
    handler(&request, &response);
    EndChild(forks);
  } catch (const std::exception& e) {
    Log(LOG_ERR, "%s threw: %s", call.Name().c_str(), e.what());
    EndChild(forks);
    response.SetError(webapi::kGeneralFailure, Json::Value());
  } catch (...) {
    Log(LOG_ERR, "%s threw something that is no std::exception", call.Name().c_str());
    EndChild(forks);
    response.SetError(webapi::kGeneralFailure, Json::Value());
  }
}

std::string FailureEnvelope(const KALO::APIResponse& response) {
  if (response.Data().isNull()) return ErrorEnvelope(response.ErrorCode());
  Json::Value envelope(Json::objectValue);
  envelope["success"] = false;
  envelope["error"]["code"] = response.ErrorCode();
  envelope["error"]["message"] = ErrorSentence(response.ErrorCode());
  envelope["error"]["data"] = response.Data();
  return WriteJson(envelope);
}

std::string SuccessEnvelope(const Json::Value& data) {
  return R"({"data":)" + WriteJson(data) + R"(,"success":true})";
}

}  // namespace

RunResult RunRequest(const webapi::ApiRegistry& registry, const ForkWatch& forks,
                     const std::string& body) {
  std::optional<Call> call = ParseCall(body);
  if (!call) return {ErrorEnvelope(webapi::kMalformedRequest)};
  const KALO::APIHandler handler = registry.Find(call->api, call->version, call->method);
  if (handler == nullptr) {
    Log(LOG_ERR, "%s is described but no module has it", call->Name().c_str());
    return {ErrorEnvelope(webapi::kUnknownApi), true};
  }
  KALO::APIResponse response;
  Enter(handler, *call, forks, response);
  if (!response.HasAnswer()) {
    Log(LOG_ERR, "%s set no answer (%d: %s)", call->Name().c_str(), webapi::kNoAnswer,
        ErrorSentence(webapi::kNoAnswer));
    return {ErrorEnvelope(webapi::kGeneralFailure)};
  }
  return {response.IsSuccess() ? SuccessEnvelope(response.Data()) : FailureEnvelope(response)};
}

}  // namespace kalo::webapid
